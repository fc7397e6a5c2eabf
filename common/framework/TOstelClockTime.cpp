#include "TOstelClockTime.h"

#include <time.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>

#include "OstelGenericUtils.h"

namespace {

// A time of day has no date, so it gets one on which mktime can carry and borrow.
time_t NormalizeOnEpochDay(tm& time) {
    if (time.tm_year == 0) {
        time.tm_year = 70;
        if (time.tm_mday == 0) {
            time.tm_mday = 1;
        }
    }
    return mktime(&time);
}

tm TimeOfDay(int hours, int minutes, int seconds) {
    tm time{};
    time.tm_hour = hours;
    time.tm_min = minutes;
    time.tm_sec = seconds;
    return time;
}

// What the parser leaves of a text that does not fit is taken as it is.
tm ParseTimeOfDay(const std::string& text) {
    tm time{};
    strptime(text.c_str(), "%T", &time);
    return time;
}

template <std::size_t Size>
std::string Format(const char* format, const tm& time) {
    std::array<char, Size> text{};
    return {text.data(), strftime(text.data(), text.size(), format, &time)};
}

std::string FormatTimeOfDay(const tm& time) {
    return Format<16>("%T", time);
}

// As localtime, which looks at the time zone anew on each call, but with a result of its own: alarm
// workers ask for the time beside the application's threads.
std::optional<tm> LocalTime() {
    const time_t now = time(nullptr);
    tm local{};
    tzset();
    if (localtime_r(&now, &local) == nullptr) {
        return std::nullopt;
    }
    return local;
}

// Below `limit`. Seeded by the clock on each call; enough to spread the load of many devices.
int RandomBelow(int limit) {
    const std::chrono::nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
    std::minstd_rand0 generator(static_cast<std::uint32_t>(now.count()));
    return static_cast<int>(generator() % static_cast<std::uint32_t>(limit));
}

}  // namespace

TOstelClockTime::~TOstelClockTime() = default;

TOstelClockTime& TOstelClockTime::Now() {
    if (const std::optional<tm> local = LocalTime()) {
        m_Hours = local->tm_hour;
        m_Minutes = local->tm_min;
        m_Seconds = local->tm_sec;
    }
    return *this;
}

void TOstelClockTime::Normalize() {
    tm time = TimeOfDay(m_Hours, m_Minutes, m_Seconds);
    NormalizeOnEpochDay(time);
    m_Hours = time.tm_hour;
    m_Minutes = time.tm_min;
    m_Seconds = time.tm_sec;
}

int TOstelClockTime::ToSeconds() {
    const std::int64_t hours = std::int64_t{m_Days} * 24 + m_Hours;
    return static_cast<std::int32_t>((hours * 60 + m_Minutes) * 60 + m_Seconds);
}

std::string TOstelClockTime::GetTime() const {
    tm time = TimeOfDay(m_Hours, m_Minutes, m_Seconds);
    NormalizeOnEpochDay(time);
    std::string text = FormatTimeOfDay(time);
    if (m_Days != 0 && !text.empty()) {
        text += "+" + std::to_string(m_Days);
    }
    return text;
}

std::string TOstelClockTime::GetAbsTime() const {
    const auto hours = static_cast<std::int32_t>(std::int64_t{m_Days} * 24 + m_Hours);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", hours, m_Minutes, m_Seconds);
    return text.data();
}

void TOstelClockTime::SetTime(const std::string& text) {
    tm time{};
    if (!text.empty()) {
        time = ParseTimeOfDay(text);
        NormalizeOnEpochDay(time);
    }
    m_Hours = time.tm_hour;
    m_Minutes = time.tm_min;
    m_Seconds = time.tm_sec;
    // Without a plus sign the days are not set to 0: callers set the time of day alone this way.
    const std::size_t plus = text.find('+');
    if (plus != std::string::npos) {
        OstelGenericUtils::StringToInteger(text.substr(plus + 1), m_Days);
    }
}

TOstelClockTime& TOstelClockTime::Random(const std::string& from, const std::string& to) {
    SetTime(GetRandomTime(from, to));
    return *this;
}

std::string TOstelClockTime::GetRandomTime(const std::string& from, const std::string& to) {
    tm time = ParseTimeOfDay(from);
    tm end = ParseTimeOfDay(to);
    const time_t first = NormalizeOnEpochDay(time);
    const time_t last = NormalizeOnEpochDay(end);
    const int range = static_cast<int>(difftime(last, first));
    if (range > 0) {
        time.tm_sec += RandomBelow(range);
        mktime(&time);
    }
    return FormatTimeOfDay(time);
}

std::string TOstelClockTime::GetCurrentTimeAndDate() {
    const std::optional<tm> local = LocalTime();
    return local ? Format<128>("%F %T %Z", *local) : "";
}
