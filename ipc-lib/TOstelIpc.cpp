#include "TOstelIpc.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "OstelLog.h"

namespace {

// The workers of one object that were started together.
struct TCrew {
    std::mutex mutex;
    std::int32_t active = 0;  // those that have not left for good
};

// The object whose worker this thread is, and its crew.
thread_local const TOstelIpc* served = nullptr;
thread_local std::shared_ptr<TCrew> crew;

// Early, as the event names below: listeners register while the library is being loaded.
__attribute__((init_priority(1000))) const std::string ALL_EVENTS = "*";

const std::string& ListenerKey(const std::string& eventName) {
    return eventName.empty() ? ALL_EVENTS : eventName;
}

// A listener may add and remove listeners while it is told, so the walk looks for the next one by
// the address of the last instead of keeping an iterator.
void Tell(const std::set<IOstelIpcEventListener*>& listeners, const std::string& eventName,
          const std::string& eventData) {
    for (auto next = listeners.begin(); next != listeners.end();) {
        IOstelIpcEventListener* const listener = *next;
        listener->OnEvent(eventName, eventData);
        next = listeners.upper_bound(listener);
    }
}

}  // namespace

// The application object registers for these while the library is being loaded.
__attribute__((init_priority(1000))) const std::string TOstelIpc::ON_APP_CONNECTED_EVENT =
    "APP_CONNECTED";
__attribute__((init_priority(1000))) const std::string TOstelIpc::ON_APP_DISCONNECTED_EVENT =
    "APP_DISCONNECTED";

TOstelIpc::TOstelIpc() : m_Running(false), m_Monitor(false), m_TimeoutMs(60000), m_Threads(1) {}

TOstelIpc::~TOstelIpc() {
    TOstelIpc::Stop();
    // Left are the workers of an object that one of them destroys, by ending the process from
    // inside a callback.
    for (std::thread& worker : m_Workers) {
        worker.detach();
    }
}

void TOstelIpc::OnEvent(const std::string& eventName, const std::string& eventData) {
    OSTEL_LOG(ZT_LOG_LEVEL_DEBUG, "'%s' - '%s'", eventName.c_str(), eventData.c_str());
    const std::lock_guard<std::recursive_mutex> lock(m_ListenerMutex);
    // The sets stay where they are when a listener makes the table grow.
    Tell(m_Listeners[ALL_EVENTS], eventName, eventData);
    const auto found = m_Listeners.find(eventName);
    if (found != m_Listeners.end()) {
        Tell(found->second, eventName, eventData);
    }
}

void TOstelIpc::Init(const std::string& name) {
    m_Name = name;
}

void TOstelIpc::Run() {
    std::shared_ptr<TCrew> workers;
    if (!m_Running && IsServedByThisThread()) {
        // A callback has stopped the object and now goes on with it. The worker that it runs on
        // stays, and so does each that has not left yet.
        workers = crew;
    } else {
        workers = std::make_shared<TCrew>();
        if (!m_Running) {
            // Workers that a callback has stopped may still be leaving.
            TOstelIpc::Stop();
        }
    }
    const std::lock_guard<std::mutex> lock(workers->mutex);
    m_Running = true;
    for (; workers->active < m_Threads; ++workers->active) {
        m_Workers.emplace_back([this, workers] {
            served = this;
            crew = workers;
            bool isLeaving = false;
            while (!isLeaving) {
                MainLoop();
                const std::lock_guard<std::mutex> leaving(workers->mutex);
                isLeaving = !m_Running;
                workers->active -= isLeaving ? 1 : 0;
            }
        });
    }
}

bool TOstelIpc::IsServedByThisThread() const {
    return served == this;
}

void TOstelIpc::AddEventLstener(IOstelIpcEventListener* listener, const std::string& eventName) {
    // It would end the process at the next event, far from who added it.
    if (listener == nullptr) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s", "A null listener is not added.");
        return;
    }
    const std::lock_guard<std::recursive_mutex> lock(m_ListenerMutex);
    m_Listeners[ListenerKey(eventName)].insert(listener);
}

void TOstelIpc::RemoveEventLstener(IOstelIpcEventListener* listener, const std::string& eventName) {
    const std::lock_guard<std::recursive_mutex> lock(m_ListenerMutex);
    m_Listeners[ListenerKey(eventName)].erase(listener);
}

void TOstelIpc::AddMethodHandler(const std::string& methodName, IOstelIpcMethodHandler* handler) {
    const std::lock_guard<std::recursive_mutex> lock(m_HandlerMutex);
    m_Handlers[methodName] = handler;
}

void TOstelIpc::RemoveMethodHandler(const std::string& methodName) {
    const std::lock_guard<std::recursive_mutex> lock(m_HandlerMutex);
    m_Handlers.erase(methodName);
}

int TOstelIpc::OnMethodCall(const std::string& methodName, const std::string& methodData,
                            std::string& reply) {
    const std::lock_guard<std::recursive_mutex> lock(m_HandlerMutex);
    const auto found = m_Handlers.find(methodName);
    if (found == m_Handlers.end() || found->second == nullptr) {
        return -1;
    }
    return found->second->OnMethodCall(methodName, methodData, reply);
}

void TOstelIpc::Stop() {
    m_Running = false;
    // A callback cannot wait for the worker that it runs on, nor for others, which may be waiting
    // for the registry that the callback holds. They leave their loops, and the next Run or Stop
    // from elsewhere joins them.
    if (IsServedByThisThread()) {
        return;
    }
    for (std::thread& worker : m_Workers) {
        if (worker.joinable()) {
            worker.join();
        }
    }
    m_Workers.clear();
}

void TOstelIpc::Configure(const TOstelIpcSettings& settings) {
    constexpr std::uint32_t longest = std::numeric_limits<std::int32_t>::max() / 1000;
    m_TimeoutMs = static_cast<std::int32_t>(std::min(settings.timeout, longest) * 1000);
    m_Threads = settings.threads;
    m_Monitor = settings.monitor;
}

void TOstelIpc::GetSettings(TOstelIpcSettings& settings) const {
    settings.timeout = static_cast<std::uint32_t>(m_TimeoutMs / 1000);
    settings.threads = m_Threads;
    settings.monitor = m_Monitor;
}

void TOstelIpc::SetMethodServerId(const std::string& methodName, const std::string& serverId) {
    m_ServerIds[methodName] = serverId;
}

void TOstelIpc::GetMethodServerId(const std::string& methodName, std::string& serverId) const {
    if (m_ServerIds.empty()) {
        return;
    }
    auto found = m_ServerIds.find(methodName);
    if (found == m_ServerIds.end()) {
        found = m_ServerIds.find("*");
    }
    serverId = found == m_ServerIds.end() ? std::string() : found->second;
}
