#ifndef T_OSTEL_CLOCK_TIME_H
#define T_OSTEL_CLOCK_TIME_H

#include <string>

#include "OstelApi.h"

// A local time of day and a number of whole days ahead, such as "08:30:00+2":
//
//     TOstelClockTime time;
//     time.SetTime("08:30:00+2");
//     time.ToSeconds();   // 203400
//     time.GetAbsTime();  // "56:30:00"
//
// Hours, minutes and seconds are normalised as a time on the first of January 1970 in the process's
// time zone, without summer time, and the day that results is dropped. In a zone whose rules put
// that day into summer time each normalisation therefore adds the hour.
//
// Nothing fails with more than an empty text or an unchanged value. A value belongs to one thread
// at a time; the order of the members is part of the binary interface.
class OSTEL_API TOstelClockTime {
public:
    TOstelClockTime() = default;
    TOstelClockTime(const TOstelClockTime&) = default;
    TOstelClockTime& operator=(const TOstelClockTime&) = default;
    virtual ~TOstelClockTime();

    // The time of day; the days stay. Nothing changes when the local time cannot be told.
    TOstelClockTime& Now();

    // 25:61:61 becomes 02:02:01, -1:00:00 becomes 23:00:00. The days stay.
    void Normalize();

    // Not normalised. Cut to 32 bits. Changes nothing, but its name in the binary interface is that
    // of an operation that could.
    int ToSeconds();

    // Normalised, with the days behind a plus sign unless they are 0. Days that have gone by are
    // written with both signs, "08:30:00+-3", as SetTime reads them.
    std::string GetTime() const;

    // Not normalised, with the days as hours.
    std::string GetAbsTime() const;

    // A text without a plus sign leaves the days as they are. Of a text that is no time, what can
    // be read is taken and the rest is 0.
    void SetTime(const std::string& text);

    TOstelClockTime& Random(const std::string& from, const std::string& to);

    // From `from` until the second before `to`; `from` itself when `to` is not later. The range
    // does not go past midnight.
    static std::string GetRandomTime(const std::string& from, const std::string& to);

    // Such as "2024-05-01 13:45:10 CEST"; empty when the local time cannot be told.
    static std::string GetCurrentTimeAndDate();

    int m_Hours = 0;
    int m_Minutes = 0;
    int m_Seconds = 0;
    int m_Days = 0;
};

#endif
