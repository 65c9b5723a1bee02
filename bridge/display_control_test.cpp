#include "bridge/display_control.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "model/customisation.h"
#include "tests/support/installed_system_test.h"

namespace qk {
namespace {

// The stand-in library, or one of its variants that lacks an entry.
std::string Library(const std::string& without = "") {
    const std::string dir = SIMULATOR_DIR;
    return without.empty() ? dir + "/libvexzelxx.so"
                           : dir + "/without-" + without + "/libvexzelxx.so";
}

constexpr const char* kCreate = "ZEL_Main_Control_Create";
constexpr const char* kDestroy = "ZEL_Main_Control_Destroy";

class DisplayControlTest : public unit::InstalledSystemTest {
  protected:
    struct Outcome {
        int result;
        std::string out;
    };
    // The bridge keeps the pointer, so the name lives in the fixture.
    void Load(const std::string& library) {
        library_ = library;
        SetDisplayControlLibrary(library_.c_str());
    }
    Outcome Call(const std::string& library, const std::string& fail,
                 const std::function<int()>& call) {
        Load(library);
        setenv("VEXZEL_SIM_FAIL", fail.c_str(), 1);
        testing::internal::CaptureStdout();
        const int result = call();
        return {result, testing::internal::GetCapturedStdout()};
    }

  private:
    std::string library_;
};

struct Operation {
    const char* entry;
    const char* missing;
    const char* failed;
    bool hasResult;                  // the reload bridge hands back nothing
    std::function<int()> call;       // succeeds against the small blob
    std::function<bool()> resolved;  // the entry's function-pointer variable is set
};

std::vector<Operation> Operations() {
    static Customisations root;
    static unsigned char exists;
    static int code;
    return {
        {"ZEL_ApplicationProfiles_System_Reload",
         "Fail to get ZEL_APPLICATIONPROFILES_SYSTEM_RELOAD handle!",
         "ZEL_ApplicationProfiles_System_Reload failed.", false,
         [] {
             Call_ZEL_ApplicationProfiles_System_Reload();
             return 0;
         },
         [] { return ZEL_ApplicationProfiles_System_Reload != nullptr; }},
        {"ZEL_ApplicationProfiles_GetCustomization",
         "Fail to get ZEL_ApplicationProfiles_GetCustomization handle!",
         "ZEL_ApplicationProfiles_GetCustomization failed.", true,
         [] {
             root = {};
             return Call_ZEL_ApplicationProfiles_GetCustomization(0, &root);
         },
         nullptr},
        {"ZEL_ApplicationProfiles_Profile_Exist",
         "Fail to get ZEL_APPLICATIONPROFILES_PROFILE_EXIST handle!",
         "ZEL_ApplicationProfiles_Profile_Exist failed.", true,
         [] { return Call_ZEL_ApplicationProfiles_Profile_Exist(L"D", L"Fast", &exists); },
         [] { return ZEL_ApplicationProfiles_Profile_Exist != nullptr; }},
        {"ZEL_ApplicationProfiles_DriverAreaPrivacy_Get",
         "Fail to get ZEL_APPLICATIONPROFILES_DRIVERAREA_GET handle!",
         "ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed.", true,
         [] { return Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(L"D", &code); },
         [] { return ZEL_ApplicationProfiles_DriverAreaPrivacy_Get != nullptr; }},
        {"ZEL_ApplicationProfiles_PropertyType_Get",
         "Fail to get ZEL_APPLICATIONPROFILES_PROPERTYTYPE handle!",
         "ZEL_ApplicationProfiles_PropertyType_Get failed.", true,
         [] { return Call_ZEL_ApplicationProfiles_PropertyType_Get(L"D", L"P", &code); },
         [] { return ZEL_ApplicationProfiles_PropertyType_Get != nullptr; }},
    };
}

TEST_F(DisplayControlTest, EveryCallPrintsItsMessagesAndReturnsTheRightCode) {
    for (const Operation& op : Operations()) {
        struct Case {
            std::string library;
            std::string fail;
            int result;
            std::string out;
        };
        const std::string entry = op.entry;
        const Case cases[] = {
            {"/nonexistent/libvexzelxx.so", "", -1, ""},
            {Library(kCreate), "", -1, "Fail to get ZEL_MAIN_CONTROL_CREATE handle!"},
            {Library(kDestroy), "", -1, "Fail to get ZEL_MAIN_CONTROL_DESTROY handle!"},
            {Library(entry), "", -1, op.missing},
            {Library(), kCreate, -1, "ZEL Initialization error!"},
            {Library(), std::string(kCreate) + "," + entry, -1, "ZEL Initialization error!"},
            {Library(), entry, -1, op.failed},
            {Library(), entry + "," + kDestroy, -1, std::string(op.failed) + "ZEL Destroy error!"},
            {Library(), kDestroy, 0, "ZEL Destroy error!"},
            {Library(), "", 0, ""},
        };
        for (const Case& c : cases) {
            const Outcome outcome = Call(c.library, c.fail, op.call);
            const std::string where = entry + " with " + c.library + " failing [" + c.fail + "]";
            if (op.hasResult) {
                EXPECT_EQ(outcome.result, c.result) << where;
            }
            EXPECT_EQ(outcome.out, c.out) << where;
            if (op.resolved && c.library == Library(entry)) {
                EXPECT_FALSE(op.resolved()) << where;
            } else if (op.resolved && c.result == 0) {
                EXPECT_TRUE(op.resolved()) << where;
            }
        }
    }
    EXPECT_EQ(Log(), "");  // the bridge never writes to the progress log
}

TEST_F(DisplayControlTest, QueriesHandBackTheLibrarysAnswersUnchanged) {
    Load(Library());
    int privacy = -1;
    EXPECT_EQ(Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(L"D", &privacy), 0);
    EXPECT_EQ(privacy, 1);
    int type = -1;
    EXPECT_EQ(Call_ZEL_ApplicationProfiles_PropertyType_Get(L"D", L"P", &type), 0);
    EXPECT_EQ(type, kTypeDword);
    unsigned char exists = 7;
    EXPECT_EQ(Call_ZEL_ApplicationProfiles_Profile_Exist(L"D", L"Fast", &exists), 0);
    EXPECT_EQ(exists, 0);

    testing::internal::CaptureStdout();
    EXPECT_EQ(Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(L"Ghost", &privacy),
              kAreaNotInstalled);
    EXPECT_NE(Call_ZEL_ApplicationProfiles_PropertyType_Get(L"D", L"Q", &type), 0);
    EXPECT_NE(Call_ZEL_ApplicationProfiles_PropertyType_Get(L"d", L"P", &type), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ZEL_ApplicationProfiles_DriverAreaPrivacy_Get failed."
              "ZEL_ApplicationProfiles_PropertyType_Get failed."
              "ZEL_ApplicationProfiles_PropertyType_Get failed.");
}

TEST_F(DisplayControlTest, ACorruptDatabaseIsAnErrorNotACrash) {
    Load(Library());
    auto blob = sim::SmallBlob();
    blob.resize(blob.size() - 8);  // the area table now runs past the end
    sim::WriteBlobFile((Scratch() / "system.blb").string(), blob);
    sim::WriteBlobFile((Scratch() / "oem.blb").string(), {'n', 'o', 't'});
    Customisations root{};
    int privacy = 0;
    testing::internal::CaptureStdout();
    EXPECT_NE(Call_ZEL_ApplicationProfiles_GetCustomization(0, &root), 0);
    EXPECT_NE(Call_ZEL_ApplicationProfiles_GetCustomization(2, &root), 0);
    EXPECT_NE(Call_ZEL_ApplicationProfiles_DriverAreaPrivacy_Get(L"D", &privacy), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(root.lpAreas, nullptr);
}

}  // namespace
}  // namespace qk
