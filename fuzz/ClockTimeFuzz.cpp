// Clock times out of texts and numbers.
#include <time.h>

#include <cstring>

#include "Fuzz.h"
#include "TOstelClockTime.h"

namespace {

constexpr int DAY = 24 * 60 * 60;

bool IsTimeOfDay(const TOstelClockTime& time) {
    return time.m_Hours >= 0 && time.m_Hours < 24 && time.m_Minutes >= 0 && time.m_Minutes < 60 &&
           time.m_Seconds >= 0 && time.m_Seconds < 60;
}

int SecondsOfDay(TOstelClockTime time) {
    time.m_Days = 0;
    return time.ToSeconds();
}

// Those that the text names: 23:59:61 is a time of the next day.
int SecondsIn(const std::string& text) {
    tm time{};
    strptime(text.c_str(), "%T", &time);
    return (time.tm_hour * 60 + time.tm_min) * 60 + time.tm_sec;
}

void FromTexts(const std::string& first, const std::string& second) {
    TOstelClockTime time;
    time.SetTime(first);
    Fuzz::Require(IsTimeOfDay(time), "a text makes a time of day");
    const std::string text = time.GetTime();
    TOstelClockTime again;
    again.SetTime(text);
    Fuzz::Require(again.GetTime() == text && again.m_Hours == time.m_Hours &&
                      again.m_Minutes == time.m_Minutes && again.m_Seconds == time.m_Seconds &&
                      again.m_Days == time.m_Days,
                  "a time is read as it was written");

    TOstelClockTime random;
    random.Random(first, second);
    const int from = SecondsIn(first);
    const int range = SecondsIn(second) - from;
    const int drawn = (SecondsOfDay(random) - from % DAY + DAY) % DAY;
    Fuzz::Require(drawn == 0 || drawn < range, "a random time lies in its range");
}

void FromNumbers(Fuzz::TCursor& cursor) {
    TOstelClockTime time;
    for (int* const field : {&time.m_Hours, &time.m_Minutes, &time.m_Seconds, &time.m_Days}) {
        const std::string bytes = cursor.Bytes(sizeof *field);
        std::memcpy(field, bytes.data(), bytes.size());
    }
    const int days = time.m_Days;
    time.ToSeconds();
    time.GetTime();
    time.GetAbsTime();
    time.Normalize();
    Fuzz::Require(IsTimeOfDay(time) && time.m_Days == days, "what is normalised is a time of day");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::TCursor cursor(Fuzz::ToText(data, size));
    const std::string first = cursor.Line();
    const std::string second = cursor.Line();
    FromTexts(first, second);
    FromNumbers(cursor);
    return 0;
}
