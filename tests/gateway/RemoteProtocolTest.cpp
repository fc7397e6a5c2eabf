#include "RemoteProtocol.h"

#include <gtest/gtest.h>

namespace {

using RemoteProtocol::TDocumentEnd;
using TState = TDocumentEnd::TState;

TEST(RemoteProtocol, FramesAnAnswerWithTwoLengths) {
    EXPECT_EQ(RemoteProtocol::Framed("{}", "abc"), std::string("\2\0\0\0\3\0\0\0", 8) + "{}abc");
    EXPECT_EQ(RemoteProtocol::Framed(std::string(258, 'x'), "").substr(0, 8),
              std::string("\2\1\0\0\0\0\0\0", 8));
}

TEST(TDocumentEnd, FindsTheEndOfAnObject) {
    const struct {
        const char* text;
        TState state;
    } cases[] = {
        {"", TState::OPEN},
        {" \r\n\t", TState::OPEN},
        {"{", TState::OPEN},
        {"{}", TState::COMPLETE},
        {" {} more", TState::COMPLETE},
        {R"({"a":{"b":[1,2]}})", TState::COMPLETE},
        {R"({"a":{"b":[1,2]})", TState::OPEN},
        {R"({"a":"}")", TState::OPEN},
        {R"({"a":"}"})", TState::COMPLETE},
        {R"({"a":"\"}")", TState::OPEN},
        {R"({"a":"\"}"})", TState::COMPLETE},
        {R"({"a":"\\"})", TState::COMPLETE},
        {R"({"a\\\"":"{{{"})", TState::COMPLETE},
        {"[]", TState::WRONG},
        {"x{}", TState::WRONG},
        {"}", TState::WRONG},
        {"\"{}\"", TState::WRONG},
    };
    for (const auto& one : cases) {
        TDocumentEnd whole;
        EXPECT_EQ(whole.Take(one.text), one.state) << one.text;
        TDocumentEnd inPieces;
        TState state = TState::OPEN;
        for (const char* c = one.text; *c != '\0'; ++c) {
            state = inPieces.Take(std::string(1, *c));
        }
        EXPECT_EQ(state, one.state) << one.text;
    }
}

TEST(TDocumentEnd, KnowsTheLengthOfADocument) {
    TDocumentEnd end;
    end.Take(" {\"a\"");
    EXPECT_EQ(end.Length(), 5U);
    end.Take(":1} more");
    EXPECT_EQ(end.Length(), 8U);
    end.Take("more");
    EXPECT_EQ(end.Length(), 8U);
}

TEST(TDocumentEnd, BearsAnyDepth) {
    TDocumentEnd end;
    EXPECT_EQ(end.Take("{" + std::string(100000, '[')), TState::OPEN);
    EXPECT_EQ(end.Take(std::string(100000, ']') + "}"), TState::COMPLETE);
}

}  // namespace
