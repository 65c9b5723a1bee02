#pragma once

// A test fixture for in-process tests: runs each test in its own scratch
// directory with a fresh allocator registry and the progress log switched on,
// so a test can read back exactly what was logged.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "tests/support/files.h"

namespace qk::unit {

class LoggedTest : public ::testing::Test {
  protected:
    void SetUp() override {
        original_ = std::filesystem::current_path();
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quillkit-unit-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
        std::filesystem::current_path(scratch_);
        ResetProgressLog();
        ResetTrackedMemory();
        UseUtf8CharacterType();  // as every run does at its start
        // The registry is made by the first block; made here, its growth line
        // stays out of the tests' logs.
        Allocate(0);
        SetCreateLog(1);
        ProgressLog(L"", 1);
    }
    void TearDown() override {
        ResetProgressLog();
        ResetTrackedMemory();
        std::filesystem::current_path(original_);
        std::error_code ignored;
        std::filesystem::remove_all(scratch_, ignored);
    }
    // Everything logged so far, as UTF-8.
    std::string Log() const { return test::ReadFile(scratch_ / kLogFileName); }
    bool Logged(const std::string& text) const { return Log().find(text) != std::string::npos; }
    std::size_t TimesLogged(const std::string& text) const {
        const std::string log = Log();
        std::size_t count = 0;
        for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
            ++count;
        }
        return count;
    }
    const std::filesystem::path& Scratch() const { return scratch_; }

  private:
    std::filesystem::path original_;
    std::filesystem::path scratch_;
};

}  // namespace qk::unit
