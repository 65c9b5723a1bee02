#include "support/regular_file_read.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "tests/support/files.h"

namespace qk {
namespace {

namespace fs = std::filesystem;

struct ReadCase {
    const char* name;
    // Makes the file to read in dir and returns its path.
    std::function<std::string(const fs::path& dir)> make;
    FileReadProblem problem;
    std::size_t bytes = 0;  // read, when there is no problem
    int cause = 0;
};

std::function<std::string(const fs::path&)> Holding(std::size_t size) {
    return [size](const fs::path& dir) {
        test::WriteFile(dir / "f", std::string(size, 'b'));
        return (dir / "f").string();
    };
}

// What is not a regular file is refused by every blob mode: see the
// command-line cases of blob file kinds.
const ReadCase kCases[] = {
    {"Regular", Holding(300), FileReadProblem::kNone, 300},
    {"Empty", Holding(0), FileReadProblem::kNone, 0},
    {"AtTheLimit", Holding(1000), FileReadProblem::kNone, 1000},
    {"OneByteOver", Holding(1001), FileReadProblem::kTooLarge},
    // A regular file whose read fails: an error, never a shorter file.
    {"ReadFails", [](const fs::path&) { return std::string("/proc/self/mem"); },
     FileReadProblem::kReadFailed, 0, EIO},
};

void PrintTo(const ReadCase& c, std::ostream* out) {
    *out << c.name;
}

class RegularFileReadTest : public ::testing::TestWithParam<ReadCase> {};

TEST_P(RegularFileReadTest, ReadsOnlyAWholeRegularFile) {
    const ReadCase& c = GetParam();
    const fs::path dir = fs::temp_directory_path() /
                         ("regular-file-read-" + std::to_string(getpid()) + "-" + c.name);
    fs::create_directories(dir);
    const RegularFileRead read = ReadRegularFile(c.make(dir).c_str(), 1000);
    EXPECT_EQ(read.problem, c.problem);
    EXPECT_EQ(read.bytes.size(), c.bytes);
    if (c.cause != 0) {
        EXPECT_EQ(read.cause, c.cause);
    }
    fs::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Files, RegularFileReadTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<ReadCase>& param) {
                             return std::string(param.param.name);
                         });

}  // namespace
}  // namespace qk
