#include "TOstelDeviceInfo.h"

#include <future>
#include <iterator>
#include <vector>

#include "ApplicationTest.h"
#include "BinaryLayout.h"
#include "WaitUntil.h"

using TItem = TOstelDeviceInfo::TInfoItemType;
using TDataMap = std::map<TItem, TOstelDeviceInfo::TInfoItemData>;

TDataMap& DataMap();
template <TDataMap* Map>
struct TDataMapAccess {
    friend TDataMap& DataMap() { return *Map; }
};
template struct TDataMapAccess<&TOstelDeviceInfo::mDataMap>;

struct TApplicationMember {
    friend std::size_t OffsetOf(TApplicationMember);
};
struct TMutexMember {
    friend std::size_t OffsetOf(TMutexMember);
};
template struct MemberOffset<TApplicationMember, &TOstelDeviceInfo::m_Application>;
template struct MemberOffset<TMutexMember, &TOstelDeviceInfo::m_Mutex>;

namespace {

using testing::IsEmpty;

struct TRow {
    int value;
    TItem item;
    const char* path;
    bool isVolatile;
};

const TRow ROWS[] = {
    {0, TOstelDeviceInfo::ADDITIONAL_SOFTWARE_VERSION,
     "Device.DeviceInfo.AdditionalSoftwareVersion", false},
    {1, TOstelDeviceInfo::CM_ADDRESS, "Device.DeviceInfo.X_KAVEN_COM_CMAddress", true},
    {2, TOstelDeviceInfo::DEVICE_CONDITION, "Device.DeviceInfo.X_KAVEN_COM_DeviceCondition", true},
    {3, TOstelDeviceInfo::DEVICE_ID_PROP1_HASH, "Device.DeviceInfo.X_KAVEN_COM_DeviceIdProp1Hash",
     false},
    {4, TOstelDeviceInfo::SYSTEM_DEVICE_MODE, "Device.X_KAVEN_COM_General.SystemState.DeviceMode",
     false},
    {5, TOstelDeviceInfo::FIRST_USE_DATE, "Device.DeviceInfo.FirstUseDate", false},
    {6, TOstelDeviceInfo::HARDWARE_VERSION, "Device.DeviceInfo.HardwareVersion", false},
    {7, TOstelDeviceInfo::MANAGED_DEVICE, "Device.DeviceInfo.X_KAVEN_COM_ManagedDevice", false},
    {8, TOstelDeviceInfo::MANUFACTURER, "Device.DeviceInfo.Manufacturer", false},
    {9, TOstelDeviceInfo::MODEL_NAME, "Device.DeviceInfo.ModelName", false},
    {10, TOstelDeviceInfo::CONTROL_DEVICE_MODE,
     "Device.X_KAVEN_COM_General.DeviceMode_Control.DeviceMode", false},
    {11, TOstelDeviceInfo::MANUFACTURER_OUI, "Device.DeviceInfo.ManufacturerOUI", false},
    {12, TOstelDeviceInfo::PERSISTENT_PATH, "Device.X_KAVEN_COM_General.Storage.PersistentPath",
     false},
    {13, TOstelDeviceInfo::PRODUCT_CLASS, "Device.DeviceInfo.ProductClass", false},
    {14, TOstelDeviceInfo::PROFILE_SYNCED, "Device.X_KAVEN_COM_General.SystemState.ProfileSynced",
     true},
    {15, TOstelDeviceInfo::SERIAL_NUMBER, "Device.DeviceInfo.SerialNumber", false},
    {16, TOstelDeviceInfo::UPDATE_LAST_CHECK_TIME,
     "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateLastCheckTime", true},
    {17, TOstelDeviceInfo::UPDATE_COMPLETION_PERCENTAGE,
     "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateCompletionPercentage", true},
    {18, TOstelDeviceInfo::UPDATE_STATUS, "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateStatus",
     true},
    {19, TOstelDeviceInfo::UPDATE_URL, "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateURL", true},
    {20, TOstelDeviceInfo::UPDATE_VERSION,
     "Device.X_KAVEN_COM_General.SoftwareUpdate.UpdateVersion", true},
    {21, TOstelDeviceInfo::SOFTWARE_VERSION, "Device.DeviceInfo.SoftwareVersion", false},
    {22, TOstelDeviceInfo::TEMPORARY_PATH, "Device.X_KAVEN_COM_General.Storage.TemporaryPath",
     false},
    {23, TOstelDeviceInfo::UP_TIME, "Device.DeviceInfo.UpTime", true},
    {24, TOstelDeviceInfo::WAN_ADDRESS, "Device.DeviceInfo.X_KAVEN_COM_WANAddress", true},
    {25, TOstelDeviceInfo::WAN_MAC, "Device.DeviceInfo.X_KAVEN_COM_WANMAC", false},
};

TEST(TOstelDeviceInfoTable, IsThereBeforeAnyCallWithoutValues) {
    EXPECT_EQ(DataMap().size(), std::size(ROWS));
    for (const TRow& row : ROWS) {
        EXPECT_EQ(int{row.item}, row.value);
        ASSERT_EQ(DataMap().count(row.item), 1U) << row.path;
        const TOstelDeviceInfo::TInfoItemData& data = DataMap().at(row.item);
        EXPECT_EQ(data.path, row.path);
        EXPECT_EQ(data.value, "") << row.path;
        EXPECT_EQ(data.isVolatile, row.isVolatile) << row.path;
    }
}

TEST(TOstelDeviceInfoLayout, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(OffsetOf(TApplicationMember()), 0U);
    EXPECT_EQ(OffsetOf(TMutexMember()), sizeof(void*));
    static_assert(sizeof(TOstelDeviceInfo) == sizeof(void*) + sizeof(std::mutex));
    using TData = TOstelDeviceInfo::TInfoItemData;
    static_assert(offsetof(TData, path) == 0);
    static_assert(offsetof(TData, value) == sizeof(std::string));
    static_assert(offsetof(TData, isVolatile) == 2 * sizeof(std::string));
}

class TOstelDeviceInfoTest : public ApplicationTest {
protected:
    // Every parameter has this value from now on.
    void Store(const std::string& value, TManner manner = TManner::ANSWER) {
        m_Dispatcher.Answer("GET_PARAM",
                            R"({"PARAMS":[{"NAME":"Device.X","VALUE":")" + value + R"("}]})", 0,
                            manner);
    }
    void Fail() { m_Dispatcher.Answer("GET_PARAM", "", RC_NOT_FOUND); }

    std::size_t Reads() const { return m_Dispatcher.Requests().size(); }

    std::string Ask(TItem item) const {
        std::string value = "before";
        EXPECT_TRUE(m_Info.GetInfo(item, value));
        return value;
    }

    TOstelDeviceInfo& m_Info = *TOstelDeviceInfo::GetInstance();
};

TEST_F(TOstelDeviceInfoTest, ThereIsOneInstance) {
    EXPECT_EQ(TOstelDeviceInfo::GetInstance(), &m_Info);
}

TEST_F(TOstelDeviceInfoTest, EachItemIsReadByItsPathAndAgainOnlyWhenItMayChange) {
    for (const TRow& row : ROWS) {
        const std::size_t before = Reads();
        Store("first");
        EXPECT_EQ(Ask(row.item), "first") << row.path;
        EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM"),
                  std::string(R"({"NAME":")") + row.path + R"("})");
        Store("second");
        EXPECT_EQ(Ask(row.item), row.isVolatile ? "second" : "first") << row.path;
        EXPECT_EQ(Reads() - before, row.isVolatile ? 2U : 1U) << row.path;
    }
}

TEST_F(TOstelDeviceInfoTest, AnEmptyValueIsASuccessAndIsReadAgain) {
    Store("");
    EXPECT_EQ(Ask(TOstelDeviceInfo::MODEL_NAME), "");
    EXPECT_EQ(Ask(TOstelDeviceInfo::MODEL_NAME), "");
    EXPECT_EQ(Reads(), 2U);
    Store("model");
    EXPECT_EQ(Ask(TOstelDeviceInfo::MODEL_NAME), "model");
    EXPECT_EQ(Ask(TOstelDeviceInfo::MODEL_NAME), "model");
    EXPECT_EQ(Reads(), 3U);
}

TEST_F(TOstelDeviceInfoTest, AFailedReadIsLoggedAndLeavesTheValueAlone) {
    Fail();
    std::string text = "before";
    bool flag = true;
    int number = 77;
    EXPECT_FALSE(m_Info.GetInfo(TOstelDeviceInfo::MODEL_NAME, text));
    EXPECT_FALSE(m_Info.GetInfo(TOstelDeviceInfo::MODEL_NAME, flag));
    EXPECT_FALSE(m_Info.GetInfo(TOstelDeviceInfo::MODEL_NAME, number));
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(RecordingLog::Count(
                  2, "[TOstelPlatformInfo] Can't get info item (Device.DeviceInfo.ModelName)."),
              3);
    Store("model");
    EXPECT_EQ(Ask(TOstelDeviceInfo::MODEL_NAME), "model");
}

TEST_F(TOstelDeviceInfoTest, AFailedReadKeepsWhatWasThere) {
    Store("up");
    EXPECT_EQ(Ask(TOstelDeviceInfo::UP_TIME), "up");
    Fail();
    std::string value = "before";
    EXPECT_FALSE(m_Info.GetInfo(TOstelDeviceInfo::UP_TIME, value));
    EXPECT_EQ(value, "before");
    // A successful read without a value shows it.
    m_Dispatcher.Answer("GET_PARAM", R"({"PARAMS":[]})");
    EXPECT_EQ(Ask(TOstelDeviceInfo::UP_TIME), "up");
}

TEST_F(TOstelDeviceInfoTest, AnUnknownItemIsAskedForByTheEmptyPath) {
    Fail();
    std::string value = "before";
    EXPECT_FALSE(m_Info.GetInfo(static_cast<TItem>(99), value));
    EXPECT_EQ(value, "before");
    EXPECT_EQ(m_Dispatcher.LastText("GET_PARAM"), R"({"NAME":""})");
    EXPECT_EQ(RecordingLog::Count(2, "[TOstelPlatformInfo] Can't get info item ()."), 1);
    EXPECT_EQ(DataMap().size(), std::size(ROWS) + 1);
    Store("something");
    EXPECT_EQ(Ask(static_cast<TItem>(99)), "something");
    EXPECT_EQ(Ask(static_cast<TItem>(99)), "something");
    EXPECT_EQ(Reads(), 2U);
}

TEST_F(TOstelDeviceInfoTest, IntegersAreReadFromTheText) {
    const struct {
        const char* text;
        bool result;
        int value;
    } cases[] = {
        {"42", true, 42}, {"-1", true, -1}, {"", true, 0}, {"abc", false, 0}, {"12a", false, 12}};
    for (const auto& one : cases) {
        Store(one.text);
        int value = 77;
        EXPECT_EQ(m_Info.GetInfo(TOstelDeviceInfo::UPDATE_COMPLETION_PERCENTAGE, value), one.result)
            << one.text;
        EXPECT_EQ(value, one.value) << one.text;
    }
    EXPECT_THAT(RecordingLog::Texts(2), IsEmpty());
}

TEST_F(TOstelDeviceInfoTest, BooleansAreReadFromTheText) {
    const struct {
        const char* text;
        bool before, result, value;
    } cases[] = {{"true", false, true, true},  {"1", false, true, true},
                 {"FALSE", true, true, false}, {"0", true, true, false},
                 {"yes", true, false, true},   {"", true, false, true}};
    for (const auto& one : cases) {
        Store(one.text);
        bool value = one.before;
        EXPECT_EQ(m_Info.GetInfo(TOstelDeviceInfo::PROFILE_SYNCED, value), one.result) << one.text;
        EXPECT_EQ(value, one.value) << one.text;
    }
}

TEST_F(TOstelDeviceInfoTest, ManyThreadsMakeOneRead) {
    Store("serial");
    std::vector<std::future<std::string>> callers;
    callers.reserve(8);
    for (int i = 0; i < 8; ++i) {
        callers.push_back(std::async(std::launch::async,
                                     [this] { return Ask(TOstelDeviceInfo::SERIAL_NUMBER); }));
    }
    for (auto& caller : callers) {
        EXPECT_EQ(caller.get(), "serial");
    }
    EXPECT_EQ(Reads(), 1U);
}

TEST_F(TOstelDeviceInfoTest, ASlowReadHoldsUpTheOtherCallers) {
    Store("serial");
    Ask(TOstelDeviceInfo::SERIAL_NUMBER);
    Store("up", TManner::KEEP_SILENT);
    auto slow = std::async(std::launch::async, [this] { return Ask(TOstelDeviceInfo::UP_TIME); });
    ASSERT_TRUE(WaitUntil([this] { return Reads() == 2; }));
    auto other =
        std::async(std::launch::async, [this] { return Ask(TOstelDeviceInfo::SERIAL_NUMBER); });
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    m_Dispatcher.Release();
    EXPECT_EQ(slow.get(), "up");
    EXPECT_EQ(other.get(), "serial");
}

}  // namespace
