// The slots of every class: other programs call operations by their place in the table.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <sstream>

#include "tests/support/bytes.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

// The tables of the built library, as the linker's tools see them: a line for each class with its operations.
TEST(Slots, AreThoseThatOtherProgramsCall) {
  const auto print = [](const std::string& tool) {
    return std::istringstream(RunProgram({"sh", "-c", tool + " \"$0\" | c++filt -p", KESTRUNE_LIBRARY}).out);
  };
  const auto behind = [](const std::string& text, const std::string& mark) {
    const std::size_t at = text.rfind(mark);
    return at == std::string::npos ? "" : text.substr(at + mark.size());
  };
  std::map<std::uint64_t, std::string> operations;
  std::istringstream relocations = print("readelf -rW");
  for (std::string line; std::getline(relocations, line);) {
    const std::string name = behind(line.substr(0, line.rfind(" + 0")), "::");
    operations[std::strtoull(line.c_str(), nullptr, 16)] = name;
  }
  std::istringstream symbols = print("nm -DS");
  std::string tables;
  for (std::string line; std::getline(symbols, line);) {
    // Weak or not, as the compiler likes it; what is taken from elsewhere has no place.
    if (line.find(" V vtable for ") == std::string::npos && line.find(" D vtable for ") == std::string::npos)
      continue;
    std::istringstream numbers(line);
    std::uint64_t at = 0, size = 0;
    numbers >> std::hex >> at >> size;
    tables += behind(line, " ") + ":";
    for (std::uint64_t slot = 2 * sizeof(void*); slot < size; slot += sizeof(void*)) {
      tables += " " + operations[at + slot];
    }
    tables += "\n";
  }
  EXPECT_EQ(tables, ToText(ReadFile(DataPath("slots.txt"))));
}

}  // namespace
}  // namespace kestrune::testing
