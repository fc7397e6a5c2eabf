// docs/operating.md explains every line that the library logs, and none that it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "Markdown.h"

namespace {

using TTexts = std::set<std::string>;

TTexts Matches(const std::string& text, const char* pattern) {
    const std::regex expression(pattern);
    TTexts matches;
    for (std::sregex_iterator next(text.begin(), text.end(), expression), end; next != end;
         ++next) {
        matches.insert((*next)[1]);
    }
    return matches;
}

std::string Sources(std::initializer_list<const char*> rooms) {
    std::ostringstream text;
    for (const char* room : rooms) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(
                 std::filesystem::path(OSTEL_ROOT) / room)) {
            if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
                text << std::ifstream(entry.path()).rdbuf();
            }
        }
    }
    return text.str();
}

// The formats of the lines, and the texts of the exceptions that are logged as they are.
TTexts Logged() {
    const std::string sources = Sources({"application-lib", "common", "ipc-lib"});
    // What stands between is the place that the line names.
    const char* const line =
        R"re(ZT_LOG_LEVEL_(?:ERROR|WARNING|NOTICE|INFO|DEBUG),\s*(?:(?:\w+|"\w+"),\s*)*"([^"]+)")re";
    TTexts texts = Matches(sources, line);
    texts.merge(Matches(sources, R"re(ZT_LOG_LEVEL_\w+,\s*"%s",\s*"([^"]+)")re"));
    texts.merge(Matches(sources, R"re((?:Fail|runtime_error)\((?:[^";]*\?)?\s*"([^"]+)")re"));
    // The gateway's exceptions end it, are told to who asked, or stand behind the text of a line.
    const std::string gateway = Sources({"gateway"});
    texts.merge(Matches(gateway, line));
    texts.merge(Matches(gateway, R"re(Warn\(\w+,\s*"([^"]+)")re"));
    // The document has it without its document at the end.
    texts.erase("Remote Ostel has failed with '%s'. \\n\\n %s\\n");
    return texts;
}

TTexts Explained() {
    return Matches(Markdown("docs/operating.md").Text(), "`([^`]+)`");
}

// "…" stands for any text.
bool IsExplained(const std::string& logged, const TTexts& explained) {
    return std::any_of(explained.begin(), explained.end(), [&](const std::string& text) {
        const std::size_t any = text.find("…");
        return any == std::string::npos ? text == logged
                                        : logged.rfind(text.substr(0, any), 0) == 0;
    });
}

TEST(Operating, ExplainsEveryLine) {
    const TTexts explained = Explained();
    const TTexts logged = Logged();
    EXPECT_GT(logged.size(), 50U);
    for (const std::string& text : logged) {
        EXPECT_TRUE(IsExplained(text, explained)) << text;
    }
}

TEST(Operating, ExplainsNoLineThatIsNotThere) {
    const std::string sources = Sources({"application-lib", "common", "gateway", "ipc-lib"});
    for (const std::string& text : Explained()) {
        const bool isFormat = text.find('%') != std::string::npos;
        if (isFormat) {
            EXPECT_NE(sources.find('"' + text), std::string::npos) << text;
        }
    }
}

TEST(Operating, NamesParametersThatAreThere) {
    std::ostringstream model;
    model << std::ifstream(OSTEL_ROOT "/gateway/models/home-gateway.json").rdbuf();
    TTexts names = Matches(Markdown("docs/operating.md").Text(), "`(Device\\.[^`]+)`");
    EXPECT_FALSE(names.empty());
    for (const std::string& name : names) {
        const std::string points = std::regex_replace(name, std::regex(R"(\.)"), R"(\.)");
        const std::regex path('"' + std::regex_replace(points, std::regex(R"(\*)"), R"([^."]+)"));
        EXPECT_TRUE(std::regex_search(model.str(), path)) << name;
    }
}

}  // namespace
