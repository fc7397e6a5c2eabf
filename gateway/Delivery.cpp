#include "Delivery.h"

#include <algorithm>
#include <utility>

#include "zt_logging.h"

namespace {

using TClock = std::chrono::steady_clock;

}  // namespace

TDelivery::TDelivery(std::string address, TSend send, TPatience patience)
    : m_Address(std::move(address)),
      m_Send(std::move(send)),
      m_Patience(patience),
      m_Thread([this] { Run(); }) {}

TDelivery::~TDelivery() {
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_IsOver = true;
    }
    m_Stop.Raise();
    m_Changed.notify_one();
    m_Thread.join();
}

void TDelivery::Push(std::string text) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Waiting.size() >= m_Patience.mostWaiting) {
        ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s: too many changes are waiting, one is dropped",
                      m_Address.c_str());
        m_Waiting.pop_front();
    }
    m_Waiting.push_back({std::move(text), TClock::now() + m_Patience.total});
    m_Changed.notify_one();
}

std::optional<TDeadline> TDelivery::LostSince() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_LostSince;
}

void TDelivery::OnSignOfLife() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_LostSince.reset();
}

void TDelivery::Run() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (true) {
        m_Changed.wait(lock, [this] { return m_IsOver || !m_Waiting.empty(); });
        if (m_IsOver) {
            return;
        }
        const TWaiting first = std::move(m_Waiting.front());
        m_Waiting.pop_front();
        lock.unlock();
        const bool isDelivered = Deliver(first);
        lock.lock();
        if (isDelivered) {
            m_LostSince.reset();
        } else if (!m_IsOver) {
            DropWhatIsLate();
        }
    }
}

bool TDelivery::Deliver(const TWaiting& waiting) {
    auto pause = m_Patience.firstPause;
    while (true) {
        if (m_Send(m_Address, waiting.text, m_Stop, TClock::now() + m_Patience.attempt)) {
            return true;
        }
        std::unique_lock<std::mutex> lock(m_Mutex);
        const TDeadline next = TClock::now() + pause;
        if (next >= waiting.end || m_Changed.wait_until(lock, next, [this] { return m_IsOver; })) {
            return false;
        }
        pause = std::min(2 * pause, m_Patience.longestPause);
    }
}

// What waits behind the text that was just given up, and would be too late after another pause.
void TDelivery::DropWhatIsLate() {
    const TDeadline now = TClock::now();
    m_LostSince = m_LostSince.value_or(now);
    std::size_t count = 1;
    for (; !m_Waiting.empty() && m_Waiting.front().end <= now + m_Patience.longestPause; ++count) {
        m_Waiting.pop_front();
    }
    ztLogging_log(ZT_LOG_LEVEL_ERROR, "%s cannot be reached, changes dropped: %zu",
                  m_Address.c_str(), count);
}
