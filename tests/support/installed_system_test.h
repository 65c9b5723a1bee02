#pragma once

// A fixture for tests that talk to the stand-in display-control library: the
// small blob is installed as the system database (user and OEM ones are
// absent), no entry is made to fail, and the bridge is left without a library.

#include <cstdlib>

#include "bridge/display_control.h"
#include "tests/support/logged_test.h"
#include "tests/support/small_blob.h"

namespace qk::unit {

class InstalledSystemTest : public LoggedTest {
  protected:
    void SetUp() override {
        LoggedTest::SetUp();
        sim::WriteBlobFile((Scratch() / "system.blb").string(), sim::SmallBlob());
        setenv("VEXZEL_SIM_DIR", Scratch().c_str(), 1);
        unsetenv("VEXZEL_SIM_FAIL");
    }
    void TearDown() override {
        SetDisplayControlLibrary(nullptr);
        unsetenv("VEXZEL_SIM_DIR");
        unsetenv("VEXZEL_SIM_FAIL");
        ReleaseLibraryAnswers();
        LoggedTest::TearDown();
    }
};

}  // namespace qk::unit
