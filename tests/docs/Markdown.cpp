#include "Markdown.h"

#include <cctype>
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

std::vector<Markdown::TBlock> Markdown::Blocks() const {
    std::vector<TBlock> blocks;
    std::string heading;
    bool isInBlock = false;
    std::istringstream lines(m_Text);
    for (std::string line; std::getline(lines, line);) {
        if (isInBlock && line == FENCE) {
            isInBlock = false;
        } else if (isInBlock) {
            blocks.back().content += line + "\n";
        } else if (line.rfind(FENCE, 0) == 0) {
            isInBlock = true;
            blocks.push_back({heading, line.substr(FENCE.size()), ""});
        } else if (line.rfind("## ", 0) == 0) {
            heading = line.substr(3);
        }
    }
    if (isInBlock) {
        throw std::runtime_error("a code block without an end");
    }
    return blocks;
}

std::vector<std::string> Markdown::Blocks(const std::string& language,
                                          const std::string& heading) const {
    std::vector<std::string> contents;
    for (const TBlock& block : Blocks()) {
        if (block.language == language && (heading.empty() || block.heading == heading)) {
            contents.push_back(block.content);
        }
    }
    return contents;
}

std::vector<Markdown::TLink> Markdown::Links() const {
    static const std::regex link(R"(\]\(([^)#:]*)(?:#([^)]*))?\))");
    std::vector<TLink> links;
    for (std::sregex_iterator next(m_Text.begin(), m_Text.end(), link), end; next != end; ++next) {
        links.push_back({(*next)[1], (*next)[2]});
    }
    return links;
}

std::set<std::string> Markdown::Anchors() const {
    std::set<std::string> anchors;
    std::istringstream lines(m_Text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind('#', 0) != 0) {
            continue;
        }
        std::string anchor;
        for (const char c : line.substr(line.find_first_not_of("# "))) {
            if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_') {
                anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            } else if (c == ' ') {
                anchor += '-';
            }
        }
        anchors.insert(anchor);
    }
    return anchors;
}
