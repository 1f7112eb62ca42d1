#ifndef ZEPH_TESTS_ZEPH_FILES_ARCHIVES_H
#define ZEPH_TESTS_ZEPH_FILES_ARCHIVES_H

#include <zlib.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zeph/sparse_matrix.h"

inline std::string gzipped(const std::string& text, int window = 31) {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, window, 8, Z_DEFAULT_STRATEGY);
  std::string packed(text.size() + 200, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = reinterpret_cast<Bytef*>(packed.data());
  z.avail_out = static_cast<uInt>(packed.size());
  deflate(&z, Z_FINISH);
  packed.resize(z.total_out);
  deflateEnd(&z);
  return packed;
}

inline std::string little(std::size_t value, int bytes) {
  std::string text;
  for (int k = 0; k < bytes; ++k, value >>= 8) text += static_cast<char>(value);
  return text;
}

template <class T>
std::string npy(const char* type, const std::string& shape, const std::vector<T>& values) {
  const std::string header =
      std::string("{'descr': '") + type + "', 'fortran_order': False, 'shape': " + shape + ", }\n";
  std::string file = "\x93NUMPY\x01" + std::string(1, '\0') + little(header.size(), 2) + header;
  return file.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

// A zip archive, every other member deflated.
inline std::string archive(const std::vector<std::pair<std::string, std::string>>& members) {
  std::string file, directory;
  for (const auto& [name, content] : members) {
    const bool packed = members[0].first != name;
    const std::string raw = packed ? gzipped(content, -15) : content;
    const auto* bytes = reinterpret_cast<const Bytef*>(content.data());
    const std::string sizes = little(crc32(0, bytes, static_cast<uInt>(content.size())), 4) +
                              little(raw.size(), 4) + little(content.size(), 4) +
                              little(name.size(), 2) + little(0, 2);
    const std::string common =
        little(20, 2) + little(0, 2) + little(packed ? 8 : 0, 2) + little(0, 4);
    directory += "PK\x01\x02" + little(20, 2) + common + sizes + little(0, 10) +
                 little(file.size(), 4) + name;
    file += "PK\x03\x04" + common + sizes + name + raw;
  }
  const std::string count = little(members.size(), 2);
  return file + directory + "PK\x05\x06" + little(0, 4) + count + count +
         little(directory.size(), 4) + little(file.size(), 4) + little(0, 2);
}

using Ints = std::vector<std::int32_t>;

// What scipy.sparse.save_npz writes.
inline std::string sparseArchive(const zeph::SparseMatrix& m, const std::string& format) {
  const bool byRows = format == "csr";
  Ints rows, cols, starts(1, 0), indices;
  std::vector<double> data;
  for (std::size_t line = 0; line < (byRows ? m.rows : m.cols); ++line) {
    for (const auto& e : m.entries) {
      if ((byRows ? e.row : e.col) != line) continue;
      rows.push_back(static_cast<int>(e.row));
      cols.push_back(static_cast<int>(e.col));
      data.push_back(e.value);
    }
    starts.push_back(static_cast<int>(data.size()));
  }
  const auto list = [](std::size_t count) { return "(" + std::to_string(count) + ",)"; };
  std::vector<std::pair<std::string, std::string>> members = {
      {"format.npy", npy<char>("|S3", "()", {format.begin(), format.end()})},
      {"shape.npy",
       npy<std::int64_t>("<i8", "(2,)", {static_cast<long>(m.rows), static_cast<long>(m.cols)})},
      {"data.npy", npy("<f8", list(data.size()), data)}};
  if (format == "coo") {
    members.emplace_back("row.npy", npy("<i4", list(rows.size()), rows));
    members.emplace_back("col.npy", npy("<i4", list(cols.size()), cols));
  } else {
    members.emplace_back("indptr.npy", npy("<i4", list(starts.size()), starts));
    members.emplace_back("indices.npy", npy("<i4", list(rows.size()), byRows ? cols : rows));
  }
  return archive(members);
}

#endif
