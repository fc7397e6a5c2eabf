// Replies that are no documents or hold something else than they should, and texts that no document
// or no bus message can carry.
#include <functional>
#include <unordered_map>

#include "ApplicationTest.h"
#include "TOstelJsonObject.h"
#include "ostelAppLib.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using TParams = std::vector<TOstelApplication::TOstelAppParam>;

// The operations that read a reply; each tells how much it got.
struct TReader {
    const char* operation;
    const char* method;
    std::function<int(TOstelApplication&, std::size_t&)> call;
};

void PrintTo(const TReader& reader, std::ostream* stream) {
    *stream << reader.operation;
}

std::vector<TReader> Readers() {
    return {
        {"GetParam", "GET_PARAM",
         [](auto& app, auto& size) {
             TParams params;
             const int code = app.GetParam("Device.", params);
             size = params.size();
             return code;
         }},
        {"GetParamDocument", "GET_PARAM",
         [](auto& app, auto& size) {
             TOstelJsonObject result;
             const int code = app.GetParam("Device.", result);
             size = result.GetJsonArraySize("PARAMS");
             return code;
         }},
        {"GetParamArray", "GET_PARAM_ARRAY",
         [](auto& app, auto& size) {
             TParams params;
             const int code = app.GetParamArray(params);
             size = params.size();
             return code;
         }},
        {"GetObject", "GET_OBJECT",
         [](auto& app, auto& size) {
             TParams params;
             const int code = app.GetObject("Device.", params);
             size = params.size();
             return code;
         }},
        {"GetObjectIds", "GET_OBJECT_INSTANCES",
         [](auto& app, auto& size) {
             std::vector<int> ids;
             const int code = app.GetObjectIds("Device.", ids);
             size = ids.size();
             return code;
         }},
        {"GetObjectTree", "GET_OBJECT_TREE",
         [](auto& app, auto& size) {
             std::vector<std::string> names;
             const int code = app.GetObjectTree("Device.", names);
             size = names.size();
             return code;
         }},
        {"AddObject", "ADD_OBJECT_INSTANCE",
         [](auto& app, auto& size) {
             int id = 0;
             const int code = app.AddObject("Device.", id);
             size = static_cast<std::size_t>(id);
             return code;
         }},
        {"GetIndexMap", "GET_INDEX_MAP",
         [](auto& app, auto& size) {
             std::unordered_map<std::string, std::vector<std::pair<int, int>>> map;
             const int code = app.GetIndexMap(map);
             size = map.size();
             return code;
         }},
        {"FlatGetParam", "GET_PARAM",
         [](auto&, auto& size) {
             tOstelAppLibParamRequest request = {};
             const int code = ostelAppLibGetParam(&request);
             size = request.array.count;
             ostelAppLibReleaseParamRequest(&request);
             return code;
         }},
        {"FlatGetParamArray", "GET_PARAM_ARRAY",
         [](auto&, auto& size) {
             tOstelAppLibParamArray array = {};
             ostelAppLibAllocateParamArray(&array, 1);
             array.params[0] = {};
             const int code = ostelAppLibGetParamArray(&array);
             size = code == RC_SUCCESS ? array.count : 0;
             ostelAppLibReleaseParamArray(&array);
             return code;
         }},
        {"FlatGetObject", "GET_OBJECT",
         [](auto&, auto& size) {
             tOstelAppLibObjectRequest request = {};
             ostelAppLibAllocateObjectRequest(&request, 1);
             request.params.params[0] = {};
             const int code = ostelAppLibGetObject(&request);
             size = code == RC_SUCCESS ? request.params.count : 0;
             ostelAppLibReleaseObjectRequest(&request);
             return code;
         }},
        {"FlatGetObjectIds", "GET_OBJECT_INSTANCES",
         [](auto&, auto& size) {
             tOstelAppLibObjectIdsRequest request = {};
             const int code = ostelAppLibGetObjectIds(&request);
             size = request.count;
             ostelAppLibReleaseObjectIdsRequest(&request);
             return code;
         }},
        {"FlatGetIndexMapping", "GET_INDEX_MAP",
         [](auto&, auto& size) {
             tOstelAppLibIndexMapRequest request = {};
             const int code = ostelAppLibGetIndexMapping(&request);
             size = request.count;
             ostelAppLibReleaseIndexMapRequest(&request);
             return code;
         }},
    };
}

// "PARAMS", "IDS" and "DATA_MODELS" with the same array.
std::string Arrays(const std::string& array) {
    return R"({"PARAMS":)" + array + R"(,"IDS":)" + array + R"(,"DATA_MODELS":)" + array + "}";
}

class TBadReply : public ApplicationTest, public testing::WithParamInterface<TReader> {
protected:
    int Read(const std::string& reply) {
        m_Dispatcher.Answer(GetParam().method, reply);
        m_Size = 0;
        return GetParam().call(m_App, m_Size);
    }

    std::size_t m_Size = 0;
};

TEST_P(TBadReply, ThatIsNoDocumentIsLoggedWithTheDecodersTextAndARuntimeError) {
    const std::string deep(100000, '[');
    const std::vector<std::string> replies = {"no document",
                                              "{",
                                              R"({"PARAMS":[)",
                                              R"({"PARAMS":[]} more)",
                                              "{'PARAMS':[]}",
                                              "17",
                                              R"({"PARAMS":["\u0000"]})",
                                              deep,
                                              R"({"PARAMS":)" + deep,
                                              std::string(10 << 20, ' ')};
    for (const std::string& reply : replies) {
        RecordingLog::Clear();
        EXPECT_EQ(Read(reply), RC_RUNTIME_ERROR) << reply.substr(0, 40);
        EXPECT_EQ(m_Size, 0U);
        TOstelJsonObject decoder;
        ASSERT_FALSE(decoder.DecodeFromString(reply));
        EXPECT_THAT(RecordingLog::Texts(2), ElementsAre(decoder.GetErrorText()));
        EXPECT_THAT(decoder.GetErrorText(), StartsWith("line "));
        EXPECT_EQ(RecordingLog::LastFormat(2), "%s");
    }
}

TEST_P(TBadReply, ThatIsEmptyIsLoggedAndARuntimeError) {
    EXPECT_EQ(Read(""), RC_RUNTIME_ERROR);
    EXPECT_THAT(RecordingLog::Texts(2), ElementsAre("The reply is empty"));
}

TEST_P(TBadReply, WithoutItsMembersIsASuccessWithoutContent) {
    for (const std::string& reply :
         {std::string("{}"), std::string("[]"), std::string("[[],{}]"), Arrays("null"),
          Arrays("true"), Arrays("17"), Arrays("1.5"), Arrays(R"("text")"),
          Arrays(R"({"0":{"NAME":"A"}})"), std::string(R"({"params":[{}],"ids":[1],"id":1})")}) {
        EXPECT_EQ(Read(reply), RC_SUCCESS) << reply;
        EXPECT_EQ(m_Size, 0U) << reply;
    }
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_P(TBadReply, WithMixedElementsIsReadAsFarAsItGoes) {
    EXPECT_EQ(Read(Arrays(R"([1,"a",null,true,[],{},{"NAME":1},[[[]]],1e300,-9e18])")), RC_SUCCESS);
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_P(TBadReply, OfAHundredThousandElementsIsReadWhole) {
    std::string array = "[0";
    for (int i = 1; i < 100000; ++i) {
        array += R"(,{"NAME":")" + std::to_string(i) + R"(","VALUE":"v"})";
    }
    EXPECT_EQ(Read(Arrays(array + "]")), RC_SUCCESS);
    EXPECT_EQ(m_Size, std::string(GetParam().method) == "ADD_OBJECT_INSTANCE" ? 0U : 100000U);
}

INSTANTIATE_TEST_SUITE_P(Operations, TBadReply, testing::ValuesIn(Readers()),
                         [](const auto& testCase) { return testCase.param.operation; });

class TBadInput : public ApplicationTest {
protected:
    // What each request with that text in all its places says to the dispatcher, which refuses it.
    std::vector<std::string> TextsOfAllRequests(const std::string& bad) {
        for (const char* method :
             {"GET_PARAM", "SET_PARAM", "GET_PARAM_ARRAY", "SET_PARAM_ARRAY", "GET_OBJECT",
              "SET_OBJECT", "GET_OBJECT_INSTANCES", "GET_OBJECT_TREE", "ADD_OBJECT_INSTANCE",
              "DELETE_OBJECT_INSTANCE"}) {
            m_Dispatcher.Answer(method, "", 1);
        }
        TParams params = {{bad, bad}};
        std::vector<int> ids;
        std::vector<std::string> names;
        std::string value;
        int id = 0;
        EXPECT_EQ(m_App.GetParam(bad, value), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.SetParam(bad, bad, true), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.GetParamArray(params), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.SetParamArray(params, true), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.GetObject(bad, params), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.SetObject(bad, params, true), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.GetObjectIds(bad, ids), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.GetObjectTree(bad, names), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.AddObject(bad, id), RC_INVALID_ARGUMENT);
        EXPECT_EQ(m_App.RemoveObject(bad), RC_INVALID_ARGUMENT);
        std::vector<std::string> texts;
        for (const auto& request : m_Dispatcher.Requests()) {
            texts.push_back(request.text);
        }
        return texts;
    }
};

TEST_F(TBadInput, AReplyOfTenMegabytesArrivesWhole) {
    const std::string value(10 << 20, 'v');
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[{"NAME":"A","VALUE":")" + value + "\"}]}");
    std::string read;
    EXPECT_EQ(m_App.GetParam("A", read), RC_SUCCESS);
    EXPECT_TRUE(read == value);
}

TEST_F(TBadInput, ARequestOfTenMegabytesArrivesWhole) {
    m_Dispatcher.Answer("SET_PARAM", "");
    const std::string value(10 << 20, 'v');
    EXPECT_EQ(m_App.SetParam("A", value, false), RC_SUCCESS);
    EXPECT_TRUE(m_Dispatcher.LastText("SET_PARAM") ==
                R"({"NAME":"A","VALUE":")" + value + R"(","COMMIT":false})");
}

// What cannot be a JSON text is sent as null, for the dispatcher to refuse.
TEST_F(TBadInput, ATextThatIsNotUtf8IsSentAsNull) {
    EXPECT_THAT(
        TextsOfAllRequests("\xc3("),
        ElementsAre(R"({"NAME":null})", R"({"NAME":null,"VALUE":null,"COMMIT":true})",
                    R"({"PARAMS":[{"NAME":null}]})",
                    R"({"PARAMS":[{"NAME":null,"VALUE":null}],"COMMIT":true})",
                    R"({"PARAMS":[{"NAME":null}],"ROOT":null})",
                    R"({"PARAMS":[{"NAME":null,"VALUE":null}],"ROOT":null,"COMMIT":true})",
                    R"({"OBJ":null})", R"({"OBJ":null})", R"({"OBJ":null})", R"({"OBJ":null})"));
}

TEST_F(TBadInput, ATextWithANulIsSentEscaped) {
    const std::vector<std::string> texts = TextsOfAllRequests(std::string("a\0b", 3));
    const std::string text = R"("a\u0000b")";
    const std::string name = R"({"NAME":)" + text;
    const std::string both = name + R"(,"VALUE":)" + text;
    const std::string object = R"({"OBJ":)" + text + "}";
    EXPECT_THAT(
        texts, ElementsAre(name + "}", both + R"(,"COMMIT":true})", R"({"PARAMS":[)" + name + "}]}",
                           R"({"PARAMS":[)" + both + R"(}],"COMMIT":true})",
                           R"({"PARAMS":[)" + name + R"(}],"ROOT":)" + text + "}",
                           R"({"PARAMS":[)" + both + R"(}],"ROOT":)" + text + R"(,"COMMIT":true})",
                           object, object, object, object));
}

TEST_F(TBadInput, ARequestLargerThanTheBusAllowsIsARuntimeError) {
    EXPECT_EQ(m_App.SetParam("A", std::string(128 << 20, 'v'), false), RC_RUNTIME_ERROR);
    EXPECT_EQ(RecordingLog::Count(2, "dbus_message_iter_append_basic failed"), 2);
}

}  // namespace
