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

// What scipy.sparse.save_npz writes: csr, csc, coo, bsr with blocks of 2 x 3 where they fit, dia.
inline std::string sparseArchive(const zeph::SparseMatrix& m, const std::string& format) {
  const bool byRows = format == "csr";
  Ints rows, cols, starts(1, 0);
  std::vector<double> data;
  if (format == "bsr" || format == "dia") {
    const std::vector<double> dense = zeph::toDense(m).values;
    const std::size_t high = m.rows % 2 == 0 ? 2 : 1, wide = m.cols % 3 == 0 ? 3 : 1;
    for (std::size_t row = 0; row < m.rows && format == "bsr"; row += high) {
      for (std::size_t col = 0; col < m.cols; col += wide) {
        for (std::size_t k = 0; k < high * wide; ++k) {
          data.push_back(dense[(col + k % wide) * m.rows + row + k / wide]);
        }
        if (std::count(data.end() - static_cast<long>(high * wide), data.end(), 0.0) ==
            static_cast<long>(high * wide)) {
          data.resize(data.size() - high * wide);
        } else {
          cols.push_back(static_cast<int>(col / wide));
        }
      }
      starts.push_back(static_cast<int>(cols.size()));
    }
    if (format == "bsr") {
      return sparseArchive(format, m.rows, m.cols,
                           npy("<f8", tuple({cols.size(), high, wide}), data),
                           {{"indptr.npy", ints(starts)}, {"indices.npy", ints(cols)}});
    }
    for (auto d = 1 - static_cast<int>(m.rows); d < static_cast<int>(m.cols); ++d) {
      rows.push_back(d);
      for (int j = 0; j < static_cast<int>(m.cols); ++j) {
        const bool inside = j >= d && j - d < static_cast<int>(m.rows);
        data.push_back(inside ? dense[static_cast<std::size_t>(j) * m.rows + (j - d)] : 9.0);
      }
    }
    return sparseArchive(format, m.rows, m.cols, npy("<f8", tuple({rows.size(), m.cols}), data),
                         {{"offsets.npy", ints(rows)}});
  }
  for (std::size_t line = 0; line < (byRows ? m.rows : m.cols); ++line) {
    for (const auto& e : m.entries) {
      if ((byRows ? e.row : e.col) != line) continue;
      rows.push_back(static_cast<int>(e.row));
      cols.push_back(static_cast<int>(e.col));
      data.push_back(e.value);
    }
    starts.push_back(static_cast<int>(data.size()));
  }
  const Members own = format == "coo" ? Members{{"row.npy", ints(rows)}, {"col.npy", ints(cols)}}
                                      : Members{{"indptr.npy", ints(starts)},
                                                {"indices.npy", ints(byRows ? cols : rows)}};
  return sparseArchive(format, m.rows, m.cols, npy("<f8", tuple({data.size()}), data), own);
}

#endif
