#pragma once

// Whole files as bytes, for tests that write their inputs and read back what
// was written.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qk::test {

// The bytes of file; empty when it cannot be read.
inline std::string ReadFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Replaces file with bytes, making its directory first when it is missing.
inline void WriteFile(const std::filesystem::path& file, const std::string& bytes) {
    if (file.has_parent_path()) {
        std::filesystem::create_directories(file.parent_path());
    }
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace qk::test
