// The tool and a dispatcher that answers what nobody expects, too late, or not at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "CliFixture.h"
#include "ScriptedDispatcher.h"

namespace {

using testing::HasSubstr;
using TManner = ScriptedDispatcher::TManner;

struct TVerb {
    std::vector<std::string> arguments;
    std::string method;
    bool reads;  // a document, that is; others look at the code only
};

std::vector<TVerb> Verbs() {
    return {
        {{"get", "D.A"}, "GET_PARAM", true},
        {{"save", "D."}, "GET_PARAM", true},
        {{"object", "get", "D."}, "GET_OBJECT", true},
        {{"instances", "D.T."}, "GET_OBJECT_INSTANCES", true},
        {{"tree", "D."}, "GET_OBJECT_TREE", true},
        {{"add", "D.T.", "--no-commit"}, "ADD_OBJECT_INSTANCE", true},
        {{"index-map"}, "GET_INDEX_MAP", true},
        {{"long", "get", "D.A"}, "GET_LONG_PARAM", true},
        {{"set", "D.A=1"}, "SET_PARAM", false},
        {{"set", "D.A=1", "D.B=2"}, "SET_PARAM_ARRAY", false},
        {{"object", "set", "D.", "A=1"}, "SET_OBJECT", false},
        {{"delete", "D.T.1.", "--no-commit"}, "DELETE_OBJECT_INSTANCE", false},
        {{"commit"}, "COMMIT", false},
    };
}

class BadReply : public testing::Test {
protected:
    // The statuses of all verbs, in order.
    std::vector<int> Statuses(const std::string& text, int code, TManner manner) {
        std::vector<int> statuses;
        for (const TVerb& verb : Verbs()) {
            m_Dispatcher.Answer(verb.method, text, code, manner);
            const TFinished finished = Cli(verb.arguments);
            EXPECT_EQ(finished.errors.empty(), finished.status == 0)
                << verb.arguments[0] << ": " << finished.errors;
            statuses.push_back(finished.status);
        }
        return statuses;
    }

    static std::vector<int> Expected(int ofReaders, int ofOthers) {
        std::vector<int> statuses;
        for (const TVerb& verb : Verbs()) {
            statuses.push_back(verb.reads ? ofReaders : ofOthers);
        }
        return statuses;
    }

    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
};

TEST_F(BadReply, ThatIsNoDocumentIsARuntimeError) {
    for (const std::string& text : {std::string(), std::string("{\"PARAMS\":["),
                                    std::string("garbage"), std::string(100000, '[')}) {
        EXPECT_EQ(Statuses(text, 0, TManner::ANSWER), Expected(3, 0)) << text.substr(0, 20);
    }
    m_Dispatcher.Answer("GET_PARAM", std::string(10 * 1024 * 1024, 'x'));
    EXPECT_EQ(Cli({"get", "D.A"}).status, 3);
}

TEST_F(BadReply, WithoutItsMembersIsEmpty) {
    for (const char* text : {"{}", "[]", R"({"PARAMS":5,"IDS":"x","DATA_MODELS":{},"VALUE":[]})"}) {
        EXPECT_EQ(Statuses(text, 0, TManner::ANSWER), Expected(0, 0)) << text;
    }
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[5,null,[],{},{"NAME":7,"VALUE":{}}]})");
    EXPECT_EQ(Cli({"get", "D."}).status, 0);
}

TEST_F(BadReply, WithoutACodeIsAFailure) {
    EXPECT_EQ(Statuses("{}", 0, TManner::ANSWER_TEXT), Expected(255, 255));
    EXPECT_EQ(Statuses("no", 0, TManner::ANSWER_ERROR), Expected(255, 255));
}

TEST_F(BadReply, WithACodeOfItsOwnTellsItsNumber) {
    m_Dispatcher.Answer("GET_PARAM", "{}", 1234);
    const TFinished get = Cli({"get", "D.A"});
    EXPECT_EQ(get.status, 255);
    EXPECT_EQ(get.errors, "ostelcli: D.A: code 1234\n");
    m_Dispatcher.Answer("GET_PARAM", "{}", 77);
    EXPECT_EQ(Cli({"get", "D.A"}).status, 77);
}

TEST_F(BadReply, OfTenMegabytesIsShownWhole) {
    const std::string value(10 * 1024 * 1024, 'v');
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"D.A","VALUE":")" + value + R"("}]})");
    EXPECT_TRUE(Cli({"get", "D.A"}).output == "D.A  " + value + "\n");
    std::string params;
    for (int i = 0; i < 100000; ++i) {
        params += R"({"NAME":"D.)" + std::to_string(i) + R"(","VALUE":""},)";
    }
    params.pop_back();
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[)" + params + "]}");
    EXPECT_THAT(Cli({"get", "D."}).output, HasSubstr("D.99999"));
}

TEST_F(BadReply, ThatIsLateIsStillTaken) {
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"D.A","VALUE":"1"}]})", 0,
                        TManner::KEEP_SILENT);
    ChildProcess get({OSTELCLI, "get", "D.A"});
    ASSERT_TRUE(m_Dispatcher.WaitForRequest("GET_PARAM"));
    m_Dispatcher.Release();
    EXPECT_EQ(get.Wait(), 0);
    EXPECT_EQ(get.Output(), "D.A  1\n");
}

TEST_F(BadReply, OfSomebodyWhoDiesIsAFailureAtOnce) {
    m_Dispatcher.Answer("GET_PARAM", "", 0, TManner::DIE);
    const TFinished get = Cli({"get", "D.A"});
    EXPECT_EQ(get.status, 255);
    EXPECT_EQ(get.errors,
              "ostelcli: D.A: RC_FAILURE (-1)\n"
              "ostelcli: no gateway answers on this bus (see 'ostelcli info')\n");
}

// It is there and could not keep what it was to commit.
TEST_F(BadReply, OfFailureIsNotTakenForAMissingGateway) {
    m_Dispatcher.Answer("COMMIT", "{}", -1);
    m_Dispatcher.Answer("IS_APP_ACTIVE", "");
    EXPECT_EQ(Cli({"commit"}).errors, "ostelcli: commit: RC_FAILURE (-1)\n");
}

TEST_F(BadReply, LeavesNothingOfASnapshotBehind) {
    TempDir dir;
    std::ofstream(dir.File("s.json")) << R"({"ROOT":"D.","PARAMS":[{"NAME":"D.A","VALUE":"1"}]})";
    m_Dispatcher.Answer("GET_PARAM", "garbage");
    for (const char* verb : {"load", "diff"}) {
        EXPECT_EQ(Cli({verb, dir.File("s.json")}).status, 3) << verb;
    }
    EXPECT_EQ(m_Dispatcher.LastText("SET_PARAM"), "no request of SET_PARAM");
    EXPECT_EQ(m_Dispatcher.LastText("COMMIT"), "no request of COMMIT");
}

}  // namespace
