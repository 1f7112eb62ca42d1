#ifndef ZEPH_FACTOR_SCRATCH_FILE_H
#define ZEPH_FACTOR_SCRATCH_FILE_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "kernels/panel_file.h"

namespace zeph {

/// Throws Error(Output) unless files can be made in the folder and lie on a disk.
void requireScratchFolder(const std::string& folder);

/// A file for `count` values of `what`, such as "the factor of A.mtx", with room reserved for all
/// of them: a disk that fills up later harms nothing. It has no name where the file system has such
/// files, else it loses its name at once, so that nothing is left when the process ends, however
/// that comes about. There has to be room for `beside` bytes more, for what it will keep as well.
/// `poll` may throw to stop. Throws Error(Output) with the amounts needed and free.
std::unique_ptr<korin::kernels::PanelFile> makeScratchFile(const std::string& folder,
                                                           std::size_t count, double beside,
                                                           const std::string& what,
                                                           const std::function<void()>& poll);

/// For what its reading and writing throws later: Error(Output) with the number's meaning.
[[noreturn]] void throwScratchError(const std::string& folder, int reason);

}  // namespace zeph

#endif
