// The flat interface's requests to another unit.
#include <cstring>
#include <memory>

#include "RemoteTest.h"
#include "ostelAppLib.h"

namespace {

using testing::ElementsAre;

class OstelAppLibRemote : public RemoteTest {
protected:
    ~OstelAppLibRemote() override {
        ostelAppLibReleaseParamRequest(&m_Request);
        ostelAppLibReleaseLongParamRemote(&m_File);
    }

    void Ask(const TlsPeer& peer, const char* name) {
        std::strcpy(m_Request.remote, peer.Host().c_str());
        std::strcpy(m_Request.name, name);
        std::strcpy(m_File.remote, peer.Host().c_str());
        std::strcpy(m_File.name, name);
    }

    tOstelAppLibParamRequest m_Request{};
    tOstelAppLibLongParamRequest m_File{};
};

TEST_F(OstelAppLibRemote, TellsTheNameOfASingleParameterToo) {
    const TlsPeer peer(
        {}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"}],"STATUS":"OK"})"));
    Ask(peer, "Device.");
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
    EXPECT_STREQ(m_Request.name, "Device.A");
    EXPECT_STREQ(m_Request.value, "1");
    EXPECT_FALSE(m_Request.isArray);
    EXPECT_THAT(peer.Requests(), ElementsAre(R"({"REQUEST_TYPE":"GET_PARAM","NAME":"Device."})"));
}

TEST_F(OstelAppLibRemote, CutsTheTextsOfASingleParameterAndLeavesNothingBehindThem) {
    for (const std::size_t length : {1U, 255U, 256U, 2000U}) {
        const std::string text(length, 'x');
        const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":")" + text + R"(","VALUE":")" +
                                               text + R"("}],"STATUS":"OK"})"));
        std::memset(m_Request.value, 'y', sizeof m_Request.value);
        Ask(peer, "Device.");
        std::memset(m_Request.name + std::strlen("Device.") + 1, 'y', 200);
        EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
        std::string field = text.substr(0, 255);
        field.resize(256);
        EXPECT_EQ(std::string(m_Request.name, 256), field);
        EXPECT_EQ(std::string(m_Request.value, 256), field);
    }
}

TEST_F(OstelAppLibRemote, SendsFieldsThatAreFullToTheirLastByte) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    Ask(peer, "");
    std::memset(m_Request.name, 'n', sizeof m_Request.name);
    std::memset(m_Request.value, 'v', sizeof m_Request.value);
    std::memset(m_File.name, 'f', sizeof m_File.name);
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
    EXPECT_EQ(ostelAppLibSetParamRemote(&m_Request, true), RC_SUCCESS);
    EXPECT_EQ(ostelAppLibGetFileRemote(&m_File), RC_SUCCESS);
    const std::string name = R"("NAME":")" + std::string(256, 'n') + '"';
    EXPECT_THAT(
        peer.Requests(),
        ElementsAre(R"({"REQUEST_TYPE":"GET_PARAM",)" + name + "}",
                    R"({"REQUEST_TYPE":"SET_PARAM",)" + name + R"(,"VALUE":")" +
                        std::string(256, 'v') + R"(","COMMIT":true})",
                    R"({"REQUEST_TYPE":"GET_FILE","FILE_NAME":")" + std::string(256, 'f') + "\"}"));
    std::memset(m_Request.remote, 'r', sizeof m_Request.remote);
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_FAILURE);
    EXPECT_EQ(Errors().back(), std::string(256, 'r') + " is not a valid IP");
}

TEST_F(OstelAppLibRemote, GivesSeveralParametersAsAnArray) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":"Device.A","VALUE":"1"},)"
                                           R"({"NAME":"Device.B","VALUE":"2"}],"STATUS":"OK"})"));
    Ask(peer, "Device.");
    ostelAppLibAllocateParamArray(&m_Request.array, 7);
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
    EXPECT_TRUE(m_Request.isArray);
    ASSERT_EQ(m_Request.array.count, 2U);
    EXPECT_STREQ(m_Request.array.params[1].name, "Device.B");
    EXPECT_STREQ(m_Request.array.params[1].value, "2");
    EXPECT_STREQ(m_Request.name, "Device.");
}

// Unlike the local request, which tells of nothing by an empty array.
TEST_F(OstelAppLibRemote, TakesNoParameterForNoArrayAndLeavesAnEarlierOne) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[],"STATUS":"OK"})"));
    Ask(peer, "Device.");
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
    EXPECT_FALSE(m_Request.isArray);
    EXPECT_EQ(m_Request.array.params, nullptr);
    ostelAppLibAllocateParamArray(&m_Request.array, 7);
    m_Request.isArray = true;
    const auto* const params = m_Request.array.params;
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_SUCCESS);
    EXPECT_TRUE(m_Request.isArray);
    EXPECT_EQ(m_Request.array.params, params);
    EXPECT_EQ(m_Request.array.count, 7U);
    EXPECT_STREQ(m_Request.name, "Device.");
}

TEST_F(OstelAppLibRemote, SetsAndCommits) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    Ask(peer, "Device.A");
    std::strcpy(m_Request.value, "1");
    EXPECT_EQ(ostelAppLibSetParamRemote(&m_Request, true), RC_SUCCESS);
    EXPECT_EQ(ostelAppLibSetParamRemote(&m_Request, false), RC_SUCCESS);
    EXPECT_EQ(ostelAppLibCommitRemote(m_Request.remote), RC_SUCCESS);
    EXPECT_THAT(
        peer.Requests(),
        ElementsAre(R"({"REQUEST_TYPE":"SET_PARAM","NAME":"Device.A","VALUE":"1","COMMIT":true})",
                    R"({"REQUEST_TYPE":"SET_PARAM","NAME":"Device.A","VALUE":"1","COMMIT":false})",
                    R"({"REQUEST_TYPE":"COMMIT"})"));
}

TEST_F(OstelAppLibRemote, FetchesAFileWithoutAddingANul) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY, std::string("a\0b", 3)));
    Ask(peer, "log.txt");
    ostelAppLibAllocateLongParamRequest(&m_File, 99);
    EXPECT_EQ(ostelAppLibGetFileRemote(&m_File), RC_SUCCESS);
    EXPECT_EQ(std::string(m_File.value, m_File.size), std::string("a\0b", 3));
    EXPECT_THAT(peer.Requests(),
                ElementsAre(R"({"REQUEST_TYPE":"GET_FILE","FILE_NAME":"log.txt"})"));
}

TEST_F(OstelAppLibRemote, FetchesAnEmptyFile) {
    const TlsPeer peer({}, TlsPeer::Framed(OK_REPLY));
    Ask(peer, "empty");
    EXPECT_EQ(ostelAppLibGetFileRemote(&m_File), RC_SUCCESS);
    EXPECT_EQ(m_File.size, 0U);
    // With no size to go by, who takes it for a text needs its NUL.
    EXPECT_STREQ(m_File.value, "");
}

TEST_F(OstelAppLibRemote, LeavesTheRecordsAloneOnAFailure) {
    const TlsPeer peer({}, TlsPeer::Framed(R"({"PARAMS":[{"NAME":"B"}],"STATUS":"FAILED"})", "x"));
    Ask(peer, "Device.A");
    ostelAppLibAllocateLongParamRequest(&m_File, 3);
    const char* const value = m_File.value;
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_FAILURE);
    EXPECT_EQ(ostelAppLibGetFileRemote(&m_File), RC_FAILURE);
    EXPECT_STREQ(m_Request.name, "Device.A");
    EXPECT_EQ(m_File.value, value);
    EXPECT_EQ(m_File.size, 3U);
}

TEST_F(OstelAppLibRemote, NeedsAnAddress) {
    std::strcpy(m_Request.name, "Device.A");
    EXPECT_EQ(ostelAppLibGetParamRemote(&m_Request), RC_FAILURE);
    EXPECT_EQ(ostelAppLibCommitRemote("unit.example"), RC_FAILURE);
    EXPECT_THAT(Errors(), ElementsAre(" is not a valid IP", "unit.example is not a valid IP"));
}

TEST_F(OstelAppLibRemote, RefusesANullRequestInItsOwnWay) {
    EXPECT_EQ(ostelAppLibGetParamRemote(nullptr), RC_FAILURE);
    EXPECT_EQ(ostelAppLibSetParamRemote(nullptr, true), RC_FAILURE);
    EXPECT_EQ(ostelAppLibCommitRemote(nullptr), RC_FAILURE);
    EXPECT_EQ(ostelAppLibGetFileRemote(nullptr), RC_FAILURE);
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("ostelAppLibGetParamRemote: the request is NULL",
                            "ostelAppLibSetParamRemote: the request is NULL",
                            "ostelAppLibCommitRemote: the request is NULL",
                            "ostelAppLibGetFileRemote: the request is NULL"));
}

}  // namespace
