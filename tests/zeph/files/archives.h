#ifndef ZEPH_TESTS_ZEPH_FILES_ARCHIVES_H
#define ZEPH_TESTS_ZEPH_FILES_ARCHIVES_H

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zeph/matrix/to_dense.h"
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

using Members = std::vector<std::pair<std::string, std::string>>;

inline std::string tuple(const std::vector<std::size_t>& extents) {
  std::string text = "(";
  for (const std::size_t e : extents) text += std::to_string(e) + ",";
  return text + ")";
}

// The members of every sparse archive, and those of its format.
inline std::string sparseArchive(const std::string& format, std::size_t rows, std::size_t cols,
                                 const std::string& data, const Members& own) {
  Members members = {{"format.npy", npy<char>("|S3", "()", {format.begin(), format.end()})},
                     {"shape.npy", npy<std::size_t>("<i8", "(2,)", {rows, cols})},
                     {"data.npy", data}};
  members.insert(members.end(), own.begin(), own.end());
  return archive(members);
}

inline std::string ints(const Ints& values) {
  return npy("<i4", tuple({values.size()}), values);
}

// What scipy.sparse.save_npz writes: coo, dia, and by lines of blocks csr, csc, and bsr, whose
// blocks are 2 x 3 where they fit.
inline std::string sparseArchive(const zeph::SparseMatrix& m, const std::string& format) {
  const std::vector<double> dense = zeph::toDense(m).values;
  const auto rows = static_cast<int>(m.rows), cols = static_cast<int>(m.cols);
  Ints starts(1, 0), indices, others;
  std::vector<double> data;
  if (format == "coo") {
    for (const auto& e : m.entries) {
      indices.push_back(static_cast<int>(e.row));
      others.push_back(static_cast<int>(e.col));
      data.push_back(e.value);
    }
    return sparseArchive(format, m.rows, m.cols, npy("<f8", tuple({data.size()}), data),
                         {{"row.npy", ints(indices)}, {"col.npy", ints(others)}});
  }
  if (format == "dia") {
    for (int d = 1 - rows; d < cols; ++d) {
      indices.push_back(d);
      for (int j = 0; j < cols; ++j) {
        const bool inside = j >= d && j - d < rows;
        data.push_back(inside ? dense[static_cast<std::size_t>(j * rows + j - d)] : 9.0);
      }
    }
    return sparseArchive(format, m.rows, m.cols, npy("<f8", tuple({indices.size(), m.cols}), data),
                         {{"offsets.npy", ints(indices)}});
  }
  const bool bsr = format == "bsr", byCols = format == "csc";
  const int high = bsr && rows % 2 == 0 ? 2 : 1, wide = bsr && cols % 3 == 0 ? 3 : 1;
  for (int line = 0; line < (byCols ? cols : rows); line += high) {
    for (int other = 0; other < (byCols ? rows : cols); other += wide) {
      std::vector<double> block;
      for (int k = 0; k < high * wide; ++k) {
        const int i = line + k / wide, j = other + k % wide;
        block.push_back(dense[static_cast<std::size_t>(byCols ? i * rows + j : j * rows + i)]);
      }
      if (std::count(block.begin(), block.end(), 0.0) == high * wide) continue;
      data.insert(data.end(), block.begin(), block.end());
      indices.push_back(other / wide);
    }
    starts.push_back(static_cast<int>(indices.size()));
  }
  std::vector<std::size_t> shape(1, indices.size());
  if (bsr) shape = {indices.size(), std::size_t(high), std::size_t(wide)};
  return sparseArchive(format, m.rows, m.cols, npy("<f8", tuple(shape), data),
                       {{"indptr.npy", ints(starts)}, {"indices.npy", ints(indices)}});
}

#endif
