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

    struct TBlock {
        std::string heading;  // the last of the second level before it
        std::string language;
        std::string content;
    };

    // All code blocks, in order.
    std::vector<TBlock> Blocks() const;

    // The contents of the code blocks of the language, in order: all, or those under a heading.
    std::vector<std::string> Blocks(const std::string& language,
                                    const std::string& heading = "") const;

    // The targets of all links within the project.
    std::vector<std::string> Links() const;

private:
    std::string m_Text;
};

#endif
