#ifndef SUBSCRIBED_NAMES_H
#define SUBSCRIBED_NAMES_H

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// What the subscribers at one address want to hear of. They are told from each other by their
// serial numbers. Not safe for concurrent use.
class TSubscribedNames {
public:
    // Names with a "*" are few because all of them are looked at for each change.
    static constexpr std::size_t MOST_NAMES = 4096;
    static constexpr std::size_t MOST_PATTERNS = 64;

    // What was added, which is what the subscriber did not have yet; nothing at all when there are
    // too many.
    std::optional<std::vector<std::string>> Add(const std::string& serialNumber,
                                                const std::vector<std::string>& names);
    void Remove(const std::string& serialNumber, const std::vector<std::string>& names);
    bool Empty() const { return m_Names.empty() && m_Patterns.empty(); }

    // Does one of the names stand for this parameter?
    bool Cover(const std::string& parameter) const;

private:
    using TSerialNumbers = std::set<std::string>;
    using TByName = std::map<std::string, TSerialNumbers, std::less<>>;

    TByName& MapOf(const std::string& name);
    static std::size_t Count(const TByName& names);

    TByName m_Names;
    TByName m_Patterns;
};

#endif
