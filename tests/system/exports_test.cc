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

TEST(exports, ProgramsAndLibrariesAreHardened)
{
#ifdef QELCD_SANITIZED
    GTEST_SKIP() << "a sanitizer is another build";
#endif
    const std::string bin = qelcd_path().substr(0, qelcd_path().rfind('/') + 1),
                      lib = bin + "../lib/qelcd/lib";
    for (const std::string &file : {bin + "qelcd", bin + "qelc", bin + "standin-manager", lib + "tw.so.1",
                                    lib + "kavdisk.so.1", lib + "kavdev.so.1", lib + "kavagt.so.1"}) {
        const std::string all = output_of("readelf --dynamic --segments --syms --wide " + file);
        for (const char *mark : {"DYN (", "GNU_RELRO", " NOW", "__stack_chk_fail"})
            EXPECT_NE(all.find(mark), std::string::npos) << file << " lacks " << mark;
        EXPECT_EQ(all.find("RWE"), std::string::npos) << file << " has memory to write and to execute";
    }
    EXPECT_NE(output_of("nm --dynamic " + qelcd_path()).find("__vsnprintf_chk@"), std::string::npos);
}
