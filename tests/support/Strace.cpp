#include "Strace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ChildProcess.h"
#include "TempDir.h"

namespace Strace {

std::string WhyNot() {
    const TFinished able = RunProgram({"strace", "-o", "/dev/null", "true"});
    return able.status == 0 ? "" : "strace: " + std::to_string(able.status) + " " + able.errors;
}

std::string Run(const std::string& calls, const std::vector<std::string>& command) {
    // The leak checker cannot run under a tracer.
    const char* const options = getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":detect_leaks=0").c_str(), 1);
    const TempDir dir;
    std::vector<std::string> traced = {
        "strace",         "-ff", "-X",          "raw", "-e",
        "trace=" + calls, "-e",  "signal=none", "-o",  dir.File("trace")};
    traced.insert(traced.end(), command.begin(), command.end());
    const TFinished run = RunProgram(traced);
    EXPECT_EQ(run.status, 0) << run.errors;
    std::ostringstream text;
    for (const auto& file : std::filesystem::directory_iterator(dir.Path())) {
        text << std::ifstream(file.path(), std::ios::binary).rdbuf();
    }
    return text.str();
}

}  // namespace Strace
