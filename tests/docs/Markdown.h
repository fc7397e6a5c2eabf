#ifndef MARKDOWN_H
#define MARKDOWN_H

#include <string>
#include <vector>

// A document of the project and its code blocks.
class Markdown {
public:
    // The path from the project's root.
    explicit Markdown(const std::string& path);

    const std::string& Text() const { return m_Text; }

    // The contents of the code blocks of the language, in order: all, or those behind a heading of
    // the second level.
    std::vector<std::string> Blocks(const std::string& language,
                                    const std::string& heading = "") const;

    // The targets of all links within the project.
    std::vector<std::string> Links() const;

private:
    std::string m_Text;
};

#endif
