// The command-line tools beside the shipped daemon.
#pragma once

#include "tests/system/adopted_test.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>

template <class Base>
class with_tools : public Base {
protected:
    with_tools()
    {
        const std::string program = qelcd_path();
        setenv("BIN", program.substr(0, program.rfind('/')).c_str(), 1);
    }

    using outcome = std::pair<int, std::string>; // exit status, and what both streams got

    // A shell command line in which $BIN is the folder of the programs.
    static outcome run(const std::string &command)
    {
        FILE *pipe = popen(("exec 2>&1; " + command).c_str(), "re");
        outcome result{-1, ""};
        for (int byte = getc(pipe); byte != EOF; byte = getc(pipe))
            result.second += static_cast<char>(byte);
        result.first = WEXITSTATUS(pclose(pipe));
        return result;
    }
};

// Each line is an answer for programs, as its schema has it.
inline void expect_valid(const std::string &answers)
{
    write_file("/var/tmp/answers", answers);
    write_file("/var/tmp/validate", "import sys, json, jsonschema\n"
                                    "check = jsonschema.Draft202012Validator(json.load(open(sys.argv[1])))\n"
                                    "for line in open('/var/tmp/answers'):\n"
                                    "    for error in check.iter_errors(json.loads(line)):\n"
                                    "        print(line, error.message)\n"
                                    "print('all seen')\n");
    EXPECT_EQ(output_of("python3 /var/tmp/validate " QELC_SCHEMA), "all seen\n");
}

// With sda and its partitions in the report.
class mirror_tools : public with_tools<adopted_test> {
protected:
    mirror_tools()
    {
        disks[0].state = 1;
        disks[0].vendor = "QRZ";
        disks[0].model = "Volume";
        world.scsi_guid("/dev/sda", "S");
        world.disks(disks);
    }
};

inline scripted_relationship mirror(int number, const char *state, unsigned percent, const char *link = "Up")
{
    const std::string text = std::to_string(number);
    return {"/dev/sda" + text, "L" + text, "M" + text, state, "Running", "Up", link, "", percent};
}
