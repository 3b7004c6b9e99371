// The program file itself: what it shows to the libraries beside it, and how these are found.
#include "tests/support/daemon.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

TEST(exports, LoggingAndNothingElseIsOfferedToLibraries)
{
#ifdef QELCD_SANITIZED
    GTEST_SKIP() << "a sanitizer adds symbols of its own";
#endif
    // Without the copies that the linker makes of variables of other libraries; these carry a version.
    EXPECT_EQ(output_of("nm --dynamic --defined-only --format=posix " + qelcd_path() +
                        " | cut -d' ' -f1 | grep -v @ | LC_ALL=C sort | tr '\\n' ' '"),
              "debug_off debug_on log_close log_init log_write set_log_level ");
}

TEST(exports, LibrariesBesideTheProgramGiveWayToLdLibraryPath)
{
    const std::string dynamic = output_of("readelf --dynamic --wide " + qelcd_path());
    EXPECT_NE(dynamic.find("Library runpath: [$ORIGIN/../lib/qelcd]"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("(RPATH)"), std::string::npos);
}
