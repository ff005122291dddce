// A GoogleTest fixture for tests that drive the real library as a host does:
// the library is loaded once for the suite, each test checks the display.
#ifndef PANOVIEW_TEST_HOSTSUITE_H
#define PANOVIEW_TEST_HOSTSUITE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "HostHarness.h"

namespace harness {

class HostSuite : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_lib = new PanoviewLibrary(); }
    static void TearDownTestSuite()
    {
        delete s_lib;
        s_lib = nullptr;
    }
    void SetUp() override
    {
        ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "these tests need an X display (DISPLAY)";
        ASSERT_TRUE(s_lib->ok()) << s_lib->error();
    }

    // "<suite>_<test><suffix>.png", for snapshots a test writes.
    static std::string Name(const std::string &suffix)
    {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        return std::string(info->test_suite_name()) + "_" + info->name() + suffix + ".png";
    }

    static inline PanoviewLibrary *s_lib = nullptr;
};

} // namespace harness

#endif
