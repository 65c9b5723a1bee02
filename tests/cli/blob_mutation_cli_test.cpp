// Damaged blobs against the readers of --from, --against and --diff. Good
// blobs are compiled by the tool from small sets that hold every kind of
// record and value; then every single-field corruption and every truncation of
// each is decoded as the three modes decode a blob file. Each must be refused,
// or give the very content of the good blob (and --diff must still not call
// the two equal): never another answer with success.

#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "bridge/blob_database.h"
#include "inspect/blob_diff.h"
#include "tests/cli/cli_harness.h"
#include "tests/support/blob_mutator.h"
#include "tests/support/case_name.h"

namespace qk::cli {
namespace {

struct Fixture {
    const char* name;
    const char* xml;                // in tests/data/mutation
    std::vector<std::string> args;  // compile in.xml to out.blb; all.blb is installed
};

const Fixture kFixtures[] = {
    {"AllKinds", "all_kinds.xml", {"-s", "in.xml", "-b", "out.blb"}},
    {"UserSet", "user_set.xml", {"-u", "-s", "in.xml", "-b", "out.blb", "--against", "all.blb"}},
    {"Tiny", "tiny.xml", {"-s", "in.xml", "-b", "out.blb"}},
};

void PrintTo(const Fixture& fixture, std::ostream* out) {
    *out << fixture.name;
}

std::vector<std::uint8_t> Compiled(const Fixture& fixture) {
    ScratchDir dir;
    const std::map<std::string, std::string> env = {{"SOURCE_DATE_EPOCH", "1700000000"}};
    WriteFile(dir / "all.xml", ReadFile(TestData("mutation/all_kinds.xml")));
    EXPECT_EQ(RunQuillard(dir.path(), {"-s", "all.xml", "-b", "all.blb"}, env).status, 0);
    WriteFile(dir / "in.xml", ReadFile(TestData("mutation") / fixture.xml));
    const RunResult run = RunQuillard(dir.path(), fixture.args, env);
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string bytes = ReadFile(dir / "out.blb");
    return {bytes.begin(), bytes.end()};
}

class BlobMutation : public ::testing::TestWithParam<Fixture> {
  protected:
    void SetUp() override {
        good_ = Compiled(GetParam());
        std::string problem;
        auto database = DecodeBlobDatabase(good_, &problem);
        ASSERT_TRUE(database) << "the good blob is refused: " << problem;
        database_ = std::move(*database);
    }

    // A damaged blob: refused, or the good blob's content and still not equal
    // to it under --diff. Otherwise a line for the report.
    void Check(const std::vector<std::uint8_t>& damaged, const std::string& what) {
        ++checked_;
        const std::optional<BlobDatabase> database = DecodeBlobDatabase(damaged);
        if (!database) {
            return;
        }
        if (!(*database == database_)) {
            wrong_.push_back(what + ": taken with other content");
            return;
        }
        const auto lines = DiffBlobs(database_, good_, *database, damaged);
        if (!lines || lines->empty()) {
            wrong_.push_back(what + ": --diff calls it equal to the good blob");
        }
    }

    std::string Report() const {
        std::ostringstream out;
        out << wrong_.size() << " of " << checked_ << " damaged blobs were not refused:\n";
        for (std::size_t i = 0; i < wrong_.size() && i < 30; ++i) {
            out << "  " << wrong_[i] << "\n";
        }
        return out.str();
    }

    std::vector<std::uint8_t> good_;
    BlobDatabase database_;
    std::size_t checked_ = 0;
    std::vector<std::string> wrong_;
};

TEST_P(BlobMutation, EveryFieldCorruptionIsRefusedOrChangesNothing) {
    for (const test::BlobField& field : test::BlobFields(good_)) {
        const std::uint32_t truth = test::WordAt(good_, field.byte);
        for (const std::uint32_t value : test::Corruptions(truth, good_.size())) {
            if (!field.otherBlob(value)) {
                std::ostringstream what;
                what << field.what << " (byte " << field.byte << ") " << truth << " -> 0x"
                     << std::hex << value;
                Check(test::WithWord(good_, field.byte, value), what.str());
            }
        }
    }
    EXPECT_GT(checked_, 500u);
    EXPECT_TRUE(wrong_.empty()) << Report();
}

TEST_P(BlobMutation, EveryTruncationIsRefused) {
    for (std::size_t length = 0; length < good_.size(); ++length) {
        Check({good_.begin(), good_.begin() + static_cast<long>(length)},
              "cut to " + std::to_string(length) + " bytes");
    }
    EXPECT_TRUE(wrong_.empty()) << Report();
}

INSTANTIATE_TEST_SUITE_P(Cli, BlobMutation, ::testing::ValuesIn(kFixtures), test::CaseName());

}  // namespace
}  // namespace qk::cli
