// The gateway and the library under everything that applications and units ask, for long.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "GatewayRemoteFixture.h"
#include "HeapInUse.h"
#include "LongTests.h"
#include "RecordingLog.h"
#include "Resources.h"
#include "WaitUntil.h"
#include "ostelAppLib.h"

namespace {

using testing::HasSubstr;
using TParams = std::vector<TOstelApplication::TOstelAppParam>;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";
const std::string MAPPINGS = "Device.NAT.PortMapping.";
const std::string SERVER = "Device.Time.NTPServer3";

struct TObserver : IOstelObserver, IOstelAppStateObserver, IOstelDataModelChangeObserverRemote {
    void OnEvent(const std::string&, const std::string&) override { ++told; }
    void OnAppStateChanged(TOstelAppState, const std::string&) override {}
    void OnDataModelChangeRemote(const std::string&, const std::string&,
                                 const std::string&) override {
        ++toldOfChanges;
    }
    std::atomic<int> told{0};
    std::atomic<int> toldOfChanges{0};
};

// How many heaps the C library makes for threads is chance, and so is what each thread keeps for
// itself of what it has freed; that one only a process that starts can do without.
struct TOneHeap {
    TOneHeap() {
        mallopt(M_ARENA_MAX, 1);
        setenv("MALLOC_ARENA_MAX", "1", 1);
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
    }
};

// What a process holds that a leak would let grow.
struct THeld {
    std::ptrdiff_t descriptors;
    std::ptrdiff_t threads;
    std::int64_t heap;
    int resident;  // KiB
};

class GatewayLoad : private TOneHeap, public GatewayRemote {
protected:
    GatewayLoad() : GatewayRemote(OSTEL_METERED_GATEWAY) {
        m_App.AddObserver(&m_Observer);
        HearOfServer();
    }
    ~GatewayLoad() override {
        m_App.RemoveDataModelChangeObserverRemote(m_Host, {SERVER}, &m_Observer);
        m_App.RemoveObserver(&m_Observer);
    }

    // The gateway is the other unit for itself: what it delivers to its own address it raises as an
    // event on this bus. The application asks from another address, at which nobody listens.
    void HearOfServer() {
        TParams params = {{SERVER, ""}};
        EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(m_Host, params, &m_Observer), RC_SUCCESS);
        const std::string subscription =
            R"("EVENT_NAME":"REMOTE_DATA_MODEL_CHANGED","PARAMS":[{"NAME":")" + SERVER +
            R"("}],"SERIAL_NUMBER":")" + m_App.GetUnitSerialNumber() + R"("})";
        EXPECT_THAT(GatewayRemote::Ask(R"({"REQUEST_TYPE":"UNSUBSCRIBE",)" + subscription),
                    HasSubstr("OK"));
        EXPECT_THAT(GatewayRemote::Ask(R"({"REQUEST_TYPE":"SUBSCRIBE",)" + subscription,
                                       {"-bind", m_Host + ":0"}),
                    HasSubstr("OK"));
    }

    void AddWriteAndDelete() {
        // Of several threads, all of whose writes are staged together.
        const std::lock_guard<std::mutex> lock(m_Instances);
        int id = 0;
        EXPECT_EQ(m_App.AddObject(MAPPINGS, id), RC_SUCCESS);
        const std::string path = MAPPINGS + std::to_string(id) + ".";
        EXPECT_EQ(m_App.SetObject(path, {{"Description", "game"}, {"InternalPort", "80"}}, true),
                  RC_SUCCESS);
        EXPECT_EQ(m_App.RemoveObject(path), RC_SUCCESS);
    }

    static void WriteAndReadALongValue(int request) {
        tOstelAppLibLongParamRequest param{};
        const std::string name = "Device.X_KAVEN_COM_General.Storage.ConfigBackup";
        name.copy(param.name, sizeof(param.name) - 1);
        std::string value(static_cast<std::size_t>(20000 + request % 7), 'v');
        param.value = value.data();
        EXPECT_EQ(ostelAppLibSetLongParam(&param, true), RC_SUCCESS);
        EXPECT_EQ(ostelAppLibGetLongParam(&param), RC_SUCCESS);
        EXPECT_GE(param.size, 20001U);
        ostelAppLibReleaseLongParamRequest(&param);
    }

    void AskForParams(int request) {
        TParams params;
        std::string value;
        std::vector<std::vector<std::pair<std::string, std::string>>> groups;
        switch (request % 8) {
            case 0:
                EXPECT_EQ(m_App.GetParam("Device.Time.", params), RC_SUCCESS);
                break;
            case 1:
                EXPECT_EQ(m_App.SetParam(LED, request % 3 == 0 ? "ON" : "BLINK", false),
                          RC_SUCCESS);
                break;
            case 2:
                EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
                break;
            case 3:
                params = {{LED, ""}, {"Device.DeviceInfo.SerialNumber", ""}};
                EXPECT_EQ(m_App.GetParamArray(params), RC_SUCCESS);
                break;
            case 4:
                params = {{LED, request % 5 == 0 ? "OFF" : "PULSE"}};
                EXPECT_EQ(m_App.SetParamArray(params, true), RC_SUCCESS);
                break;
            case 5:
                EXPECT_EQ(m_App.GetParamArray({"Device.Hosts.Host.*.HostName", LED}, groups),
                          RC_SUCCESS);
                EXPECT_EQ(groups.size(), 2U);
                break;
            case 6:
                EXPECT_EQ(m_App.GetParam("Device.Nothing", value), RC_INVALID_PARAM_NAME);
                break;
            default:
                EXPECT_EQ(m_App.SetParam(LED, "PURPLE", true), RC_INVALID_PARAM_VALUE);
        }
    }

    void AskForObjects(int request) {
        TParams params = {{"Status", ""}, {"NTPServer1", ""}};
        std::vector<int> ids;
        std::vector<std::string> names;
        std::unordered_map<std::string, std::vector<std::pair<int, int>>> map;
        switch (request % 8) {
            case 0:
                EXPECT_EQ(m_App.GetObject("Device.Time.", params), RC_SUCCESS);
                break;
            case 1:
                AddWriteAndDelete();
                break;
            case 2:
                EXPECT_EQ(m_App.GetObjectIds("Device.Hosts.Host.", ids), RC_SUCCESS);
                break;
            case 3:
                EXPECT_EQ(m_App.GetObjectTree("Device.WiFi.", names), RC_SUCCESS);
                break;
            case 4:
                EXPECT_EQ(m_App.GetIndexMap(map), RC_SUCCESS);
                break;
            case 5:
                WriteAndReadALongValue(request);
                break;
            default:
                SendAnEvent();
        }
    }

    void SendAnEvent() {
        m_App.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"u"})");
        ++m_Sent;
    }

    // Who asks gives the gateway a second, whatever else it has to do; no failure comes sooner.
    bool IsActive() {
        bool active = false;
        const auto start = std::chrono::steady_clock::now();
        const tOstelReturnCode code = m_App.IsAppActive("OSTEL_DISPATCHER", active);
        const auto taken = std::chrono::steady_clock::now() - start;
        EXPECT_TRUE(code == RC_SUCCESS || taken > std::chrono::milliseconds(990)) << code;
        return code == RC_SUCCESS && active;
    }

    void AskOtherUnits(int request) {
        TParams params = {{LED, ""}};
        std::vector<char> bytes;
        switch (request % 8) {
            case 0:
                EXPECT_EQ(m_App.GetParamRemote(m_Host, LED, params), RC_SUCCESS);
                break;
            case 1:
                EXPECT_EQ(m_App.SetParamRemote(m_Host, SERVER, std::to_string(request), true),
                          RC_SUCCESS);
                ++m_Changed;
                break;
            case 2:
                EXPECT_EQ(m_App.GetFileRemote(m_Host, "log.txt", bytes), RC_SUCCESS);
                EXPECT_EQ(bytes.size(), 8U);
                break;
            case 3:
                EXPECT_EQ(m_App.AddDataModelChangeObserverRemote(m_Host, params, &m_Passing),
                          RC_SUCCESS);
                EXPECT_EQ(m_App.RemoveDataModelChangeObserverRemote(m_Host, {LED}, &m_Passing),
                          RC_SUCCESS);
                break;
            case 4:
                EXPECT_TRUE(WaitUntil([&] { return IsActive(); }));
                break;
            case 5:
                m_App.AddAppStateChangeObserver(&m_Passing);
                m_App.RemoveAppStateChangeObserver(&m_Passing);
                break;
            default:
                EXPECT_EQ(Value("Device.DeviceInfo.SerialNumber"), "KV0123456789");
        }
    }

    void Ask(int request) {
        switch (request / 8 % 8) {
            case 0:
            case 4:
                AskForObjects(request);
                break;
            case 2:
                AskOtherUnits(request);
                break;
            default:
                AskForParams(request);
        }
    }

    void AskBesideEachOther(int requests) {
        const auto threads = Resources::Threads();
        std::vector<std::thread> applications;
        for (int first = 0; first < THREADS; ++first) {
            applications.emplace_back([this, first, requests] {
                for (int request = first; request < requests; request += THREADS) {
                    Ask(request);
                    if (request % 128 == 0) {
                        RecordingLog::Clear();
                    }
                }
            });
        }
        for (std::thread& application : applications) {
            application.join();
        }
        EXPECT_EQ(m_App.Commit(), RC_SUCCESS);
        // A joined thread may be listed for a moment.
        EXPECT_TRUE(WaitUntil([&] { return Resources::Threads() == threads; }));
        EXPECT_TRUE(WaitUntil([&] { return m_Observer.told == m_Sent; })) << m_Observer.told;
        EXPECT_TRUE(WaitUntil([&] { return m_Observer.toldOfChanges == m_Changed; }))
            << m_Observer.toldOfChanges;
        RecordingLog::Clear();
    }

    static THeld Held() {
        return {Resources::Descriptors(), Resources::Threads(), HeapInUse(),
                Resources::Memory("VmRSS:")};
    }

    THeld HeldThere() {
        std::string heap;
        EXPECT_EQ(getOstelIpcInstance()->CallMethod("HEAP_IN_USE", "", heap), 0);
        const pid_t gateway = m_Gateway.Process().Pid();
        return {Resources::Descriptors(gateway), Resources::Threads(gateway), std::stoll(heap),
                Resources::Memory("VmRSS:", gateway)};
    }

    // Bytes of heap. There is more room here, where the C library keeps freed blocks for each
    // thread and counts them as used.
    static constexpr std::int64_t ROOM = 64 << 10;
    static constexpr std::int64_t ROOM_THERE = 16 << 10;
    // KiB, for what is no heap; the heap's gaps are part of it.
    static constexpr int ROOM_RESIDENT = 2 << 10;
    static constexpr int THREADS = 7;  // so that each asks everything in its turn

    TObserver m_Observer;
    TObserver m_Passing;
    std::mutex m_Instances;
    std::atomic<int> m_Sent{0};
    std::atomic<int> m_Changed{0};
};

// What is kept of requests grows in both spans. Buffers and caches grow, too, but not in the one as
// in the other.
std::int64_t GrownInBoth(std::int64_t before, std::int64_t between, std::int64_t after) {
    return std::min(between - before, after - between);
}

// Ten requests a second for an hour, or for eight minutes, as fast as they go.
TEST_F(GatewayLoad, LeavesMemoryAndDescriptorsWhereTheyWere) {
    const int requests = Rounds(1600, 12000);
    AskBesideEachOther(requests);  // warms up
    const THeld here = Held();
    const THeld there = HeldThere();
    AskBesideEachOther(requests);
    const std::int64_t between = Held().heap;
    const std::int64_t betweenThere = HeldThere().heap;
    AskBesideEachOther(requests);
    const THeld after = Held();
    THeld afterThere{};
    std::int64_t grownThere = 0;
    // The connections of other units end, and give back what they hold, after their last answer.
    EXPECT_TRUE(WaitUntil([&] {
        afterThere = HeldThere();
        grownThere = GrownInBoth(there.heap, betweenThere, afterThere.heap);
        return grownThere < ROOM_THERE && afterThere.descriptors <= there.descriptors &&
               afterThere.threads <= there.threads;
    })) << afterThere.descriptors - there.descriptors
        << " descriptors, " << afterThere.threads - there.threads << " threads, " << grownThere
        << " bytes";
    const std::int64_t grown = GrownInBoth(here.heap, between, after.heap);
    EXPECT_LT(grown, ROOM);
    EXPECT_EQ(after.descriptors, here.descriptors);
    EXPECT_EQ(after.threads, here.threads);
    RecordProperty("grown_bytes", std::to_string(grown));
    RecordProperty("gateway_grown_bytes", std::to_string(grownThere));
    RecordProperty("resident_grown_KiB", after.resident - here.resident);
    RecordProperty("gateway_resident_grown_KiB", afterThere.resident - there.resident);
#if OSTEL_SANITIZED
    std::cout << "Resident memory is not judged: a sanitizer keeps what was given back\n";
#else
    EXPECT_LT(after.resident - here.resident, ROOM_RESIDENT);
    EXPECT_LT(afterThere.resident - there.resident, ROOM_RESIDENT);
#endif
}

}  // namespace
