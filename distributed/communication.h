// What the processes say to each other: typed messages of any length, and agreement on errors.
#ifndef ZEPH_DISTRIBUTED_COMMUNICATION_H
#define ZEPH_DISTRIBUTED_COMMUNICATION_H

#include <mpi.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <type_traits>
#include <utility>
#include <vector>

#include "zeph/error.h"

namespace zeph::distributed {

/// A communicator over the processes of another one, whose messages never meet the caller's. Counts
/// may exceed 2³¹: long messages go in pieces. All functions but send and receive are collective.
/// Errors of MPI itself end the run, as MPI's own error handler has it.
class Communicator {
 public:
  explicit Communicator(MPI_Comm comm);
  ~Communicator();
  Communicator(const Communicator&) = delete;
  Communicator& operator=(const Communicator&) = delete;

  int rank() const { return rank_; }
  int size() const { return size_; }
  bool first() const { return rank_ == 0; }
  /// Processes on this process's machine, itself among them.
  int here() const { return here_; }
  MPI_Comm raw() const { return comm_; }

  template <class T>
  void send(int to, int tag, const T* data, std::size_t count) const {
    sendBytes(to, tag, data, bytes<T>(count));
  }
  template <class T>
  void receive(int from, int tag, T* data, std::size_t count) const {
    receiveBytes(from, tag, data, bytes<T>(count));
  }

  template <class T>
  void broadcast(int root, T* data, std::size_t count) const {
    broadcastBytes(root, data, bytes<T>(count));
  }
  /// Resizes `data` on the others to the root's length.
  template <class Sequence>
  void broadcast(int root, Sequence& data) const {
    auto count = static_cast<std::uint64_t>(data.size());
    broadcast(root, &count, 1);
    data.resize(count);
    broadcast(root, data.data(), data.size());
  }

  /// The sequences of all processes one after the other, on `root`; empty elsewhere.
  template <class T>
  std::vector<T> gather(int root, const std::vector<T>& mine) const {
    std::vector<std::uint64_t> counts = lengths(root, bytes<T>(mine.size()));
    std::uint64_t all = 0;
    for (const std::uint64_t count : counts) all += count;
    std::vector<T> result(all / sizeof(T));
    gatherBytes(root, mine.data(), bytes<T>(mine.size()), result.data(), counts);
    return result;
  }

  /// to[p] goes to process p; the result is what came, in the order of the senders.
  template <class T>
  std::vector<T> exchange(const std::vector<std::vector<T>>& to) const {
    std::vector<const void*> data;
    std::vector<std::uint64_t> counts;
    for (const std::vector<T>& part : to) {
      data.push_back(part.data());
      counts.push_back(bytes<T>(part.size()));
    }
    const std::vector<std::uint64_t> coming = exchangeLengths(counts);
    std::uint64_t all = 0;
    for (const std::uint64_t count : coming) all += count;
    std::vector<T> result(all / sizeof(T));
    exchangeBytes(data, counts, result.data(), coming);
    return result;
  }

  /// Sums over the processes, in place, with the same bits on all of them.
  void sum(double* data, std::size_t count) const;
  void sum(std::int64_t* data, std::size_t count) const;
  double sum(double value) const;
  std::int64_t sum(std::int64_t value) const;
  double largest(double value) const;
  void largest(double* data, std::size_t count) const;
  std::int64_t largest(std::int64_t value) const;
  std::int64_t least(std::int64_t value) const;

  /// Whether a sentence begins with the rank on which it arose.
  enum class Naming { Rank, None };

  /// Runs work() here, in which nothing is communicated. Where it throws on any process, all of
  /// them throw: the Error of the lowest such rank, with the rank in front of the sentence unless
  /// all processes say the same. What is no Error becomes one, but on the process that threw it.
  template <class Work>
  auto together(const Work& work, Naming naming = Naming::Rank) const -> decltype(work()) {
    std::exception_ptr failure;
    if constexpr (std::is_void_v<decltype(work())>) {
      try {
        work();
      } catch (...) {
        failure = std::current_exception();
      }
      agree(failure, naming);
    } else {
      decltype(work()) result{};
      try {
        result = work();
      } catch (...) {
        failure = std::current_exception();
      }
      agree(failure, naming);
      return result;
    }
  }

  /// The same for a failure that was caught; returns where all are null.
  void agree(const std::exception_ptr& failure, Naming naming = Naming::Rank) const;

  /// Marks the beginning of a call from outside: agreed() is false until the processes fail
  /// together.
  void beginCall() const { agreed_ = false; }
  /// Whether what is thrown now is thrown on all processes. Errors that all of them find by
  /// themselves from what is the same on all are announced by fail().
  bool agreed() const { return agreed_; }
  /// Throws e, which all processes throw at this point.
  [[noreturn]] void fail(const Error& e) const {
    agreed_ = true;
    throw e;
  }
  /// Says what was caught on this process alone, and ends all processes.
  [[noreturn]] void endRun(const std::exception_ptr& failure) const;

  /// Bytes that this process has sent through this object.
  double bytesSent() const { return sent_; }

 private:
  template <class T>
  static std::uint64_t bytes(std::size_t count) {
    static_assert(std::is_trivially_copyable_v<T>);
    return static_cast<std::uint64_t>(count) * sizeof(T);
  }
  void sendBytes(int to, int tag, const void* data, std::uint64_t count) const;
  void receiveBytes(int from, int tag, void* data, std::uint64_t count) const;
  void broadcastBytes(int root, void* data, std::uint64_t count) const;
  std::vector<std::uint64_t> lengths(int root, std::uint64_t mine) const;
  void gatherBytes(int root, const void* mine, std::uint64_t count, void* all,
                   const std::vector<std::uint64_t>& counts) const;
  std::vector<std::uint64_t> exchangeLengths(const std::vector<std::uint64_t>& going) const;
  void exchangeBytes(const std::vector<const void*>& data, const std::vector<std::uint64_t>& going,
                     void* all, const std::vector<std::uint64_t>& coming) const;
  template <class T>
  void reduce(T* data, std::size_t count, MPI_Datatype type, MPI_Op op) const;

  MPI_Comm comm_ = MPI_COMM_NULL;
  int rank_ = 0, size_ = 1, here_ = 1;
  mutable double sent_ = 0.0;
  mutable bool agreed_ = false;
};

}  // namespace zeph::distributed

#endif
