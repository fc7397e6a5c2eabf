#include "VisibleText.h"

#include <gtest/gtest.h>

namespace {

TEST(VisibleText, LeavesWhatCanBeRead) {
    for (const std::string text : {"", "plain text ~", "\xC3\xA4\xC2\xA0\xE2\x82\xAC",
                                   "\xF0\x9F\x8C\x8D", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(VisibleText(text), text);
    }
}

TEST(VisibleText, WritesOutWhatATerminalMightObey) {
    EXPECT_EQ(VisibleText("a\x1b[31m\nb\tc\x7f"), "a\\x1b[31m\\x0ab\\x09c\\x7f");
    EXPECT_EQ(VisibleText(std::string("\0", 1)), "\\x00");
    // The second set: its first, its last, and the one that begins a sequence by itself.
    EXPECT_EQ(VisibleText("\xC2\x80\xC2\x9F\xC2\x9B"
                          "2J"),
              "\\xc2\\x80\\xc2\\x9f\\xc2\\x9b2J");
}

TEST(VisibleText, WritesOutWhatIsNoUtf8) {
    const struct {
        const char* text;
        const char* visible;
    } cases[] = {
        {"\x9B"
         "2J",
         "\\x9b2J"},
        {"\xFF\xFE", "\\xff\\xfe"},
        {"\xC3", "\\xc3"},
        {"\xC3(", "\\xc3("},
        {"\xE2\x82", "\\xe2\\x82"},
        {"\xC0\x8A", "\\xc0\\x8a"},
        {"\xC1\x81", "\\xc1\\x81"},
        {"\xE0\x81\x81", "\\xe0\\x81\\x81"},
        {"\xF0\x80\x81\x81", "\\xf0\\x80\\x81\\x81"},
        {"\xE0\x82\x9B", "\\xe0\\x82\\x9b"},
        {"\xF0\x80\x80\x8A", "\\xf0\\x80\\x80\\x8a"},
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},
        {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        {"\xF8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(VisibleText(one.text), one.visible);
    }
}

}  // namespace
