#ifndef LOG_ENDS_H
#define LOG_ENDS_H

#include <string>
#include <utility>
#include <vector>

// The ends of the logging library's three destinations, as a test sees them.
namespace LogEnds {

// Standard output for as long as the object lives; each element of Writes() is one write(2).
class TStandardOutput {
public:
    TStandardOutput();
    TStandardOutput(const TStandardOutput&) = delete;
    TStandardOutput& operator=(const TStandardOutput&) = delete;
    ~TStandardOutput();

    std::vector<std::string> Writes() const;

private:
    int m_Original;
    int m_ReadEnd;
};

// Standard error in the same way, as one text.
class TStandardError {
public:
    TStandardError();
    TStandardError(const TStandardError&) = delete;
    TStandardError& operator=(const TStandardError&) = delete;
    ~TStandardError();

    std::string Text() const;

private:
    int m_Original;
    int m_ReadEnd;
};

// What went to the system log so far: priority and text.
std::vector<std::pair<int, std::string>> SystemLog();

std::vector<std::string> FileLines(const std::string& path);

}  // namespace LogEnds

#endif
