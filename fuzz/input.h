// Takes an input apart from its beginning on; what is no longer there is zeros.
#ifndef KESTRUNE_FUZZ_INPUT_H
#define KESTRUNE_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kestrune::testing {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }
  std::span<const std::uint8_t> Take(std::size_t most) {
    const auto taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  std::uint64_t Number(std::size_t bytes = 8) {  // big-endian
    std::uint64_t value = 0;
    for (const std::uint8_t byte : Take(bytes)) value = value << 8 | byte;
    return value;
  }
  // Up to the next zero, which is taken too.
  std::string Text() {
    const auto* const end = std::find(rest_.data(), rest_.data() + rest_.size(), 0);
    const auto taken = Take(static_cast<std::size_t>(end - rest_.data()));
    Take(1);
    return {taken.begin(), taken.end()};
  }
  std::string Rest() {
    const auto taken = Take(rest_.size());
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace kestrune::testing

#endif
