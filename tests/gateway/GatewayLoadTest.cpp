// The gateway and the library under everything that applications and units ask, for long.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "GatewayRemoteFixture.h"
#include "LongTests.h"
#include "RecordingLog.h"
#include "Resources.h"
#include "WaitUntil.h"

namespace {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;

const std::string LED = "Device.X_KAVEN_COM_General.LED.State";
const std::string MAPPINGS = "Device.NAT.PortMapping.";

struct TObserver : IOstelObserver, IOstelAppStateObserver {
    void OnEvent(const std::string&, const std::string&) override { ++told; }
    void OnAppStateChanged(TOstelAppState, const std::string&) override {}
    std::atomic<int> told{0};
};

// Otherwise the C library gives each thread a heap of its own, and how many of them have been used
// by now is chance.
struct TOneHeap {
    TOneHeap() {
        mallopt(M_ARENA_MAX, 1);
        setenv("MALLOC_ARENA_MAX", "1", 1);
    }
};

class GatewayLoad : private TOneHeap, public GatewayRemote {
protected:
    ~GatewayLoad() override { m_App.RemoveObserver(&m_Observer); }

    tOstelReturnCode AddAndDelete() {
        // Of several threads, all of whose writes are staged together.
        const std::lock_guard<std::mutex> lock(m_Instances);
        int id = 0;
        const tOstelReturnCode code = m_App.AddObject(MAPPINGS, id);
        const tOstelReturnCode deleted = m_App.RemoveObject(MAPPINGS + std::to_string(id) + ".");
        return code != RC_SUCCESS ? code : deleted;
    }

    // What applications ask of the data model, of each other and of other units.
    void Ask(int request) {
        TParams params;
        std::string value;
        switch (request % 16) {
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
                params = {{"Status", ""}, {"NTPServer1", ""}};
                EXPECT_EQ(m_App.GetObject("Device.Time.", params), RC_SUCCESS);
                break;
            case 6:
                EXPECT_EQ(AddAndDelete(), RC_SUCCESS);
                break;
            case 7:
                m_App.SendEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", R"({"URL":"u"})");
                break;
            case 8:
                EXPECT_EQ(m_App.GetParamRemote(m_Host, LED, params), RC_SUCCESS);
                break;
            case 9:
                m_App.AddAppStateChangeObserver(&m_Observer);
                m_App.RemoveAppStateChangeObserver(&m_Observer);
                break;
            case 10:
                EXPECT_EQ(m_App.GetParam("Device.Nothing", value), RC_INVALID_PARAM_NAME);
                break;
            case 11:
                EXPECT_EQ(m_App.SetParam(LED, "PURPLE", true), RC_INVALID_PARAM_VALUE);
                break;
            default:
                EXPECT_EQ(m_App.GetParam("Device.DeviceInfo.SerialNumber", value), RC_SUCCESS);
                EXPECT_EQ(value, "KV0123456789");
        }
    }

    void AskBesideEachOther(int requests) {
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
        RecordingLog::Clear();
    }

    static constexpr int THREADS = 7;  // so that each asks everything in its turn

    TObserver m_Observer;
    std::mutex m_Instances;
};

// Ten requests a second for an hour, or for five minutes, as fast as they go.
TEST_F(GatewayLoad, LeavesMemoryAndDescriptorsWhereTheyWere) {
    m_App.AddObserver(&m_Observer);
    const pid_t gateway = m_Gateway.Process().Pid();
    const std::ptrdiff_t descriptorsThere = Resources::Descriptors(gateway);
    constexpr int WARMING_UP = 1600;
    AskBesideEachOther(WARMING_UP);
    const std::ptrdiff_t descriptors = Resources::Descriptors();
    const int memory = Resources::Memory("VmRSS:");
    const int memoryThere = Resources::Memory("VmRSS:", gateway);
    const int requests = Rounds(3200, 36000);
    AskBesideEachOther(requests);
    EXPECT_EQ(Resources::Descriptors(), descriptors);
    // The connections of the other unit end when it has gone.
    EXPECT_TRUE(WaitUntil([&] { return Resources::Descriptors(gateway) <= descriptorsThere; }));
    // One request in 16 is an event.
    EXPECT_TRUE(WaitUntil([&] { return m_Observer.told == (WARMING_UP + requests) / 16; }))
        << m_Observer.told;
    // The sanitizers keep what was freed, and look for leaks themselves.
    constexpr int ROOM = OSTEL_SANITIZED ? 1 << 20 : 2 << 10;
    const int grown = Resources::Memory("VmRSS:") - memory;
    const int grownThere = Resources::Memory("VmRSS:", gateway) - memoryThere;
    EXPECT_LT(grown, ROOM);
    EXPECT_LT(grownThere, ROOM);
    RecordProperty("grown_KiB", grown);
    RecordProperty("gateway_grown_KiB", grownThere);
}

}  // namespace
