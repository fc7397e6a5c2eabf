#ifndef MARKDOWN_H
#define MARKDOWN_H

#include <set>
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

    struct TLink {
        std::string file;    // empty for the document itself
        std::string anchor;  // empty for the file as a whole
    };

    // All links within the project.
    std::vector<TLink> Links() const;

    // Where a link may point to: one for each heading.
    std::set<std::string> Anchors() const;

private:
    std::string m_Text;
};

#endif
