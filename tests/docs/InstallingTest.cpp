// The README's installation, out of the build that is under test.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "ChildProcess.h"
#include "Markdown.h"
#include "TempDir.h"

namespace {

// At another place than /usr.
TEST(Installing, IsDoneAsTheReadmeSays) {
    const TempDir clone;
    std::filesystem::create_directories(clone.File("build"));
    std::filesystem::create_directory_symlink(OSTEL_BUILD, clone.File("build/native"));
    const std::string command = Markdown("README.md").Blocks("sh", "Installing").at(0);
    const std::regex place("--prefix /usr\n");
    ASSERT_TRUE(std::regex_search(command, place)) << command;
    const TFinished install =
        RunProgram({"sh", "-ec",
                    "cd " + clone.Path().string() + "\n" +
                        std::regex_replace(command, place, "--prefix $PWD/usr\n")});
    EXPECT_EQ(install.status, 0) << install.errors;
    const TFinished cli = RunProgram({clone.File("usr/bin/ostelcli"), "--version"});
    EXPECT_EQ(cli.output, RunProgram({std::string(OSTEL_BIN) + "/ostelcli", "--version"}).output);
    EXPECT_EQ(cli.status, 0) << cli.errors;
}

}  // namespace
