// Every XML 1.0 document that the W3C XML Conformance Test Suite calls not
// well-formed is refused: status 255, a "not well-formed" diagnostic, no blob.
// The suite is kept as its unmodified zip (tests/data/xmlts) and unpacked into
// the build tree when the test runs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <regex>
#include <string>
#include <vector>

#include "tests/cli/cli_harness.h"

namespace qk::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// The catalogs that list the not-well-formed documents, relative to the suite's top.
constexpr const char* kCatalogs[] = {"xmltest/xmltest.xml", "sun/sun-not-wf.xml", "oasis/oasis.xml",
                                     "ibm/ibm_oasis_not-wf.xml"};
// What those catalogs list as not well-formed XML 1.0 documents.
constexpr std::size_t kNotWellFormed = 1230;

// The value of an attribute of a catalog's TEST element (quoted with ' or "),
// or empty.
std::string AttributeValue(const std::string& tag, const std::string& name) {
    const std::regex pattern("\\s" + name + "\\s*=\\s*([\"'])(.*?)\\1");
    std::smatch match;
    return std::regex_search(tag, match, pattern) ? match[2].str() : std::string();
}

// The XML 1.0 not-well-formed documents a catalog lists, as paths below top.
std::vector<fs::path> NotWellFormedDocuments(const fs::path& top, const std::string& catalog) {
    const std::string text = ReadFile(top / catalog);
    const fs::path base = (top / catalog).parent_path();
    std::vector<fs::path> documents;
    for (std::size_t at = text.find("<TEST"); at != std::string::npos;
         at = text.find("<TEST", at + 1)) {
        const std::size_t end = text.find('>', at);
        if (end == std::string::npos) {
            break;
        }
        const std::string tag = text.substr(at + 5, end - at - 5);
        const std::string version = AttributeValue(tag, "VERSION");
        if (AttributeValue(tag, "TYPE") == "not-wf" && (version.empty() || version == "1.0")) {
            documents.push_back(base / AttributeValue(tag, "URI"));
        }
    }
    return documents;
}

// Unpacks the suite's zip afresh into the build tree, in a directory of this
// process (the memcheck run of the suite may run beside this one); returns it.
fs::path UnpackSuite() {
    const fs::path into = BuildDir() / "xmlts" / std::to_string(getpid());
    fs::remove_all(into);
    fs::create_directories(into);
    const std::string zip = TestData("xmlts/xmlts20130923.zip").string();
    const std::string unpack =
        "cd '" + into.string() + "' && '" CMAKE_PROGRAM "' -E tar xf '" + zip + "'";
    EXPECT_EQ(std::system(unpack.c_str()), 0) << unpack;
    return into;
}

TEST(XmlConformance, EveryNotWellFormedDocumentIsRefused) {
    const fs::path unpacked = UnpackSuite();
    const fs::path top = unpacked / "xmlconf";
    std::vector<fs::path> documents;
    for (const char* catalog : kCatalogs) {
        const std::vector<fs::path> listed = NotWellFormedDocuments(top, catalog);
        documents.insert(documents.end(), listed.begin(), listed.end());
    }
    ASSERT_EQ(documents.size(), kNotWellFormed);
    // Under valgrind a run takes a second: a sample of the documents there.
    const std::size_t step = UnderValgrind() ? 41 : 1;
    ScratchDir dir;
    std::size_t refused = 0;
    for (std::size_t index = 0; index < documents.size(); index += step) {
        const fs::path& document = documents[index];
        const RunResult run = RunQuillard(dir.path(), {"-s", document.string(), "-b", "out.blb"});
        const std::string name = fs::relative(document, top).string();
        EXPECT_EQ(run.status, 255) << name << "\n" << run.err;
        EXPECT_THAT(run.err, HasSubstr("not well-formed")) << name;
        EXPECT_FALSE(fs::exists(dir / "out.blb")) << name << ": a blob was written";
        fs::remove(dir / "out.blb");
        refused += run.status == 255 ? 1 : 0;
    }
    std::cout << "refused " << refused << " of " << (documents.size() + step - 1) / step
              << " not-well-formed documents of the W3C XML Conformance Test Suite\n";
    fs::remove_all(unpacked);
}

}  // namespace
}  // namespace qk::cli
