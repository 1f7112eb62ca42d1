#include "distributed/communication.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

namespace zeph::distributed {
namespace {

using std::size_t;
using std::uint64_t;

constexpr uint64_t kPiece = uint64_t{1} << 30;  // bytes of a message; MPI counts in int
constexpr int kCollectiveTag = 1;

char* at(void* data, uint64_t offset) {
  return static_cast<char*>(data) + offset;
}
const char* at(const void* data, uint64_t offset) {
  return static_cast<const char*>(data) + offset;
}

// Calls piece(offset, length) for the pieces of a message.
template <class Piece>
void inPieces(uint64_t count, const Piece& piece) {
  for (uint64_t offset = 0; offset < count; offset += kPiece) {
    piece(offset, static_cast<int>(std::min(kPiece, count - offset)));
  }
}

// An Error that says what was caught, and whether it was one.
struct Caught {
  bool isError = true;
  ErrorKind kind = ErrorKind::Memory;
  std::int64_t row = -1;
  std::string sentence;
};

Caught caught(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const Error& e) {
    return {true, e.kind(), e.row(), e.what()};
  } catch (const std::bad_alloc&) {
    return {true, ErrorKind::Memory, -1, "not enough memory"};
  } catch (const std::length_error&) {
    return {true, ErrorKind::Memory, -1, "not enough memory"};
  } catch (const std::exception& e) {
    return {false, ErrorKind::Cancelled, -1, std::string("stopped by an exception: ") + e.what()};
  } catch (...) {
    return {false, ErrorKind::Cancelled, -1, "stopped by an exception"};
  }
}

}  // namespace

Communicator::Communicator(MPI_Comm comm) {
  MPI_Comm_dup(comm, &comm_);
  MPI_Comm_rank(comm_, &rank_);
  MPI_Comm_size(comm_, &size_);
  MPI_Comm machine = MPI_COMM_NULL;
  MPI_Comm_split_type(comm_, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &machine);
  MPI_Comm_size(machine, &here_);
  MPI_Comm_free(&machine);
}

Communicator::~Communicator() {
  int over = 0;
  MPI_Finalized(&over);
  if (over == 0) MPI_Comm_free(&comm_);
}

void Communicator::sendBytes(int to, int tag, const void* data, uint64_t count) const {
  inPieces(count, [&](uint64_t offset, int length) {
    MPI_Send(at(data, offset), length, MPI_BYTE, to, tag, comm_);
  });
  sent_ += static_cast<double>(count);
}

void Communicator::receiveBytes(int from, int tag, void* data, uint64_t count) const {
  inPieces(count, [&](uint64_t offset, int length) {
    MPI_Recv(at(data, offset), length, MPI_BYTE, from, tag, comm_, MPI_STATUS_IGNORE);
  });
}

void Communicator::broadcastBytes(int root, void* data, uint64_t count) const {
  inPieces(count, [&](uint64_t offset, int length) {
    MPI_Bcast(at(data, offset), length, MPI_BYTE, root, comm_);
  });
  if (rank_ == root) sent_ += static_cast<double>(count) * (size_ - 1);
}

std::vector<uint64_t> Communicator::lengths(int root, uint64_t mine) const {
  std::vector<uint64_t> counts(rank_ == root ? static_cast<size_t>(size_) : 0);
  MPI_Gather(&mine, 1, MPI_UINT64_T, counts.data(), 1, MPI_UINT64_T, root, comm_);
  return counts;
}

void Communicator::gatherBytes(int root, const void* mine, uint64_t count, void* all,
                               const std::vector<uint64_t>& counts) const {
  if (rank_ != root) {
    sendBytes(root, kCollectiveTag, mine, count);
    return;
  }
  uint64_t offset = 0;
  for (int p = 0; p < size_; ++p) {
    const uint64_t length = counts[static_cast<size_t>(p)];
    if (p != root) {
      receiveBytes(p, kCollectiveTag, at(all, offset), length);
    } else if (length > 0) {
      std::copy_n(static_cast<const char*>(mine), length, at(all, offset));
    }
    offset += length;
  }
}

std::vector<uint64_t> Communicator::exchangeLengths(const std::vector<uint64_t>& going) const {
  std::vector<uint64_t> coming(going.size());
  MPI_Alltoall(going.data(), 1, MPI_UINT64_T, coming.data(), 1, MPI_UINT64_T, comm_);
  return coming;
}

void Communicator::exchangeBytes(const std::vector<const void*>& data,
                                 const std::vector<uint64_t>& going, void* all,
                                 const std::vector<uint64_t>& coming) const {
  std::vector<MPI_Request> requests;
  const auto request = [&]() -> MPI_Request* { return &requests.emplace_back(MPI_REQUEST_NULL); };
  const auto here = static_cast<size_t>(rank_);
  uint64_t place = 0;
  for (size_t p = 0; p < coming.size(); ++p) {
    if (p == here) {
      if (coming[p] > 0) std::copy_n(at(data[p], 0), coming[p], at(all, place));
    } else {
      inPieces(coming[p], [&](uint64_t offset, int length) {
        MPI_Irecv(at(all, place + offset), length, MPI_BYTE, static_cast<int>(p), kCollectiveTag,
                  comm_, request());
      });
    }
    place += coming[p];
  }
  for (size_t p = 0; p < going.size(); ++p) {
    if (p == here) continue;
    inPieces(going[p], [&](uint64_t offset, int length) {
      MPI_Isend(at(data[p], offset), length, MPI_BYTE, static_cast<int>(p), kCollectiveTag, comm_,
                request());
    });
    sent_ += static_cast<double>(going[p]);
  }
  MPI_Waitall(static_cast<int>(requests.size()), requests.data(), MPI_STATUSES_IGNORE);
}

// To the first process and back, so that all get the same bits.
template <class T>
void Communicator::reduce(T* data, size_t count, MPI_Datatype type, MPI_Op op) const {
  inPieces(count * sizeof(T), [&](uint64_t offset, int length) {
    T* piece = data + offset / sizeof(T);
    const int items = length / static_cast<int>(sizeof(T));
    MPI_Reduce(first() ? MPI_IN_PLACE : piece, piece, items, type, op, 0, comm_);
  });
  if (!first()) sent_ += static_cast<double>(count * sizeof(T));
  broadcast(0, data, count);
}

void Communicator::sum(double* data, size_t count) const {
  reduce(data, count, MPI_DOUBLE, MPI_SUM);
}

void Communicator::sum(std::int64_t* data, size_t count) const {
  reduce(data, count, MPI_INT64_T, MPI_SUM);
}

double Communicator::sum(double value) const {
  sum(&value, 1);
  return value;
}

std::int64_t Communicator::sum(std::int64_t value) const {
  sum(&value, 1);
  return value;
}

void Communicator::largest(double* data, size_t count) const {
  reduce(data, count, MPI_DOUBLE, MPI_MAX);
}

double Communicator::largest(double value) const {
  largest(&value, 1);
  return value;
}

std::int64_t Communicator::largest(std::int64_t value) const {
  reduce(&value, 1, MPI_INT64_T, MPI_MAX);
  return value;
}

std::int64_t Communicator::least(std::int64_t value) const {
  reduce(&value, 1, MPI_INT64_T, MPI_MIN);
  return value;
}

void Communicator::agree(const std::exception_ptr& failure, Naming naming) const {
  const auto from = static_cast<int>(least(failure ? rank_ : size_));
  if (from == size_) return;
  Caught mine;
  if (failure) mine = caught(failure);
  Caught theirs = mine;
  std::int64_t plain[] = {static_cast<std::int64_t>(theirs.kind), theirs.row};
  broadcast(from, plain, 2);
  broadcast(from, theirs.sentence);
  const bool same = failure && mine.isError && mine.sentence == theirs.sentence;
  const bool everywhere = least(same ? 1 : 0) == 1;
  agreed_ = true;
  if (failure && !mine.isError) std::rethrow_exception(failure);
  if (!everywhere && naming == Naming::Rank)
    theirs.sentence = "rank " + std::to_string(from) + ": " + theirs.sentence;
  throw Error(static_cast<ErrorKind>(plain[0]), theirs.sentence, plain[1]);
}

void Communicator::endRun(const std::exception_ptr& failure) const {
  const Caught mine = caught(failure);
  std::fprintf(stderr, "zeph: rank %d: %s; all processes end\n", rank_, mine.sentence.c_str());
  MPI_Abort(comm_, exitCode(mine.kind));
  std::abort();
}

}  // namespace zeph::distributed
