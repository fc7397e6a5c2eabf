#include "Markdown.h"

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

const std::string FENCE = "```";

}  // namespace

Markdown::Markdown(const std::string& path) {
    std::ifstream file(std::string(OSTEL_ROOT) + "/" + path);
    if (!file) {
        throw std::runtime_error("no document " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    m_Text = text.str();
}

std::vector<std::string> Markdown::Blocks(const std::string& language,
                                          const std::string& heading) const {
    std::vector<std::string> blocks;
    std::string* block = nullptr;
    bool isInBlock = false;
    bool isBehindHeading = heading.empty();
    std::istringstream lines(m_Text);
    for (std::string line; std::getline(lines, line);) {
        if (isInBlock && line == FENCE) {
            isInBlock = false;
            block = nullptr;
        } else if (isInBlock) {
            if (block != nullptr) {
                *block += line + "\n";
            }
        } else if (line.rfind(FENCE, 0) == 0) {
            isInBlock = true;
            if (isBehindHeading && line == FENCE + language) {
                block = &blocks.emplace_back();
            }
        } else if (line.rfind("#", 0) == 0) {
            isBehindHeading = isBehindHeading || line == "## " + heading;
        }
    }
    if (isInBlock || !isBehindHeading) {
        throw std::runtime_error("a code block without an end, or no heading " + heading);
    }
    return blocks;
}

std::vector<std::string> Markdown::Links() const {
    static const std::regex link(R"(\]\(([^)#:]+)(#[^)]*)?\))");
    std::vector<std::string> targets;
    for (std::sregex_iterator next(m_Text.begin(), m_Text.end(), link), end; next != end; ++next) {
        targets.push_back((*next)[1].str());
    }
    return targets;
}
