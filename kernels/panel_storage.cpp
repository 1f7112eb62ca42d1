#include "kernels/panel_storage.h"

namespace korin::kernels {
namespace {

/// Before the doubles: how much is mapped. A cache line.
constexpr std::size_t kHead = 64;

class Mappings final : public Lender {
 public:
  void giveBack(void* block) const noexcept override {
    munmap(block, *static_cast<const std::size_t*>(block));
  }
};

}  // namespace

PanelStorage mappedPanels(std::size_t count) {
  static const Mappings lender;
  if (count > (kCountlessBytes - kHead) / sizeof(double)) throw std::bad_alloc();
  const std::size_t bytes = kHead + count * sizeof(double);
  void* const block =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) throw std::bad_alloc();
  *static_cast<std::size_t*>(block) = bytes;
  void* const values = static_cast<char*>(block) + kHead;
  return PanelStorage(static_cast<double*>(values), FreeBlock{block, &lender});
}

}  // namespace korin::kernels
