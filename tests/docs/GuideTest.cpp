// docs/guide.md from its beginning to its end, as a reader would follow it: each program is saved,
// each command run in the order of the text, and each output compared.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "ChildProcess.h"
#include "GatewayProcess.h"
#include "Markdown.h"
#include "PrivateBus.h"
#include "TlsPeer.h"

namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// A reader's desk: a directory with what a clone has, the compilers of this build, and one shell
// session whose exported variables last from command to command.
class Desk {
public:
    Desk() {
        const std::filesystem::path root = OSTEL_ROOT;
        std::filesystem::create_directory_symlink(root / "scripts", m_Dir.File("scripts"));
        std::filesystem::create_directory(m_Dir.Path() / "build");
        std::filesystem::create_directory_symlink(OSTEL_BUILD, m_Dir.File("build/native"));
        std::filesystem::create_directory(m_Dir.Path() / "compilers");
        MakeCompiler("g++", OSTEL_CXX);
        MakeCompiler("gcc", OSTEL_CC);
        std::ofstream(m_Dir.File("session"))
            << "export PATH=" << m_Dir.File("compilers") << ":" << OSTEL_BIN << ":$PATH\n";
    }

    // The first line is a comment with the name.
    void Save(const std::string& program) {
        std::smatch name;
        ASSERT_TRUE(std::regex_search(program, name, std::regex("^(//|/\\*) (\\w+\\.\\w+)")));
        std::ofstream(m_Dir.File(name[2])) << WithHost(program);
        ++m_Programs;
    }

    TFinished Run(const std::string& command) {
        const std::string session = m_Dir.File("session");
        ++m_Commands;
        return RunProgram({"bash", "-c",
                           "cd " + m_Dir.Path().string() + "; . " + session + "\n" +
                               WithHost(command) + "\nstatus=$?; export -p > " + session +
                               "; exit $status"});
    }

    // What `./dev shell` does, but for the shell. The guide starts its second one within the first,
    // which therefore inherits what was exported there.
    void Start(std::vector<std::string> options) {
        for (std::string& option : options) {
            option = WithHost(option);
            if (std::filesystem::exists(m_Dir.Path() / option)) {
                option = m_Dir.File(option) + "/";
            }
        }
        m_Gateway.reset();
        m_Gateway = std::make_unique<GatewayProcess>(OSTEL_GATEWAY, options);
    }

    int Programs() const { return m_Programs; }
    int Commands() const { return m_Commands; }

private:
    void MakeCompiler(const std::string& name, const std::string& command) {
        const std::string path = m_Dir.File("compilers/" + name);
        std::ofstream(path) << "#!/bin/sh\nexec " << command << " -Wall -Wextra -Werror \"$@\" "
                            << OSTEL_LINK << "\n";
        std::filesystem::permissions(path, std::filesystem::perms(0755));
    }

    // Two tests may run at a time; each has an address of its own.
    std::string WithHost(const std::string& text) const {
        return std::regex_replace(text, std::regex("127\\.0\\.0\\.2"), m_Host);
    }

    PrivateBus m_Bus;
    TempDir m_Dir;
    const std::string m_Host = TlsPeer::FreeHost();
    std::unique_ptr<GatewayProcess> m_Gateway;
    int m_Programs = 0;
    int m_Commands = 0;
};

void FollowCommands(Desk& desk, const std::string& commands) {
    std::istringstream lines(commands);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> words = Words(line);
        if (words.at(0) == "./dev") {
            ASSERT_EQ(words.at(1), "shell");
            desk.Start({words.begin() + 2, words.end()});
            continue;
        }
        const TFinished run = desk.Run(line);
        ASSERT_EQ(run.status, 0) << line << "\n" << run.output << run.errors;
    }
}

// A log line's time and process differ from run to run.
std::string WithoutTimes(const std::string& output) {
    static const std::regex prefix(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} (\w+ \w+)\[\d+\]:)");
    return std::regex_replace(output, prefix, "$1:");
}

// "$ command" and what it prints. The output of commands that fail is compared as well.
void FollowConsole(Desk& desk, const std::string& session) {
    std::istringstream lines(session);
    std::string line;
    std::getline(lines, line);
    while (lines) {
        ASSERT_EQ(line.rfind("$ ", 0), 0U) << line;
        const std::string command = line.substr(2);
        std::string expected;
        while (std::getline(lines, line) && line.rfind("$ ", 0) != 0) {
            expected += line + "\n";
        }
        const TFinished run = desk.Run(command);
        EXPECT_EQ(WithoutTimes(run.errors + run.output), WithoutTimes(expected)) << command;
    }
}

TEST(Guide, CanBeFollowed) {
    Desk desk;
    for (const Markdown::TBlock& block : Markdown("docs/guide.md").Blocks()) {
        if (block.language == "sh") {
            FollowCommands(desk, block.content);
        } else if (block.language == "console") {
            FollowConsole(desk, block.content);
        } else {
            ASSERT_THAT(block.language, testing::AnyOf("cpp", "c"));
            desk.Save(block.content);
        }
        ASSERT_FALSE(HasFatalFailure());
    }
    EXPECT_EQ(desk.Programs(), 7);
    EXPECT_GE(desk.Commands(), 22);
}

class Documents : public testing::TestWithParam<const char*> {};

TEST_P(Documents, LinkToWhatIsThere) {
    const std::filesystem::path document = GetParam();
    for (const Markdown::TLink& link : Markdown(document).Links()) {
        const std::filesystem::path target =
            link.file.empty() ? document : document.parent_path() / link.file;
        ASSERT_TRUE(std::filesystem::exists(OSTEL_ROOT / target)) << target;
        if (!link.anchor.empty()) {
            EXPECT_THAT(Markdown(target).Anchors(), testing::Contains(link.anchor)) << target;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, Documents,
                         testing::Values("README.md", "CONTRIBUTING.md", "CHANGELOG.md",
                                         "docs/guide.md", "docs/wire-protocol.md",
                                         "docs/operating.md", "docs/porting.md",
                                         "docs/reliability.md", "docs/performance.md"));

}  // namespace
