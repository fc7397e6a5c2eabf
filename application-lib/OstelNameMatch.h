// Internal, not installed: parameter names in which a "*" stands for an instance number.
#ifndef OSTEL_NAME_MATCH_H
#define OSTEL_NAME_MATCH_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace OstelNameMatch {

bool HasWildcard(const std::string& name);

// Are the names equal, where a "*" in either one equals a run of one or more decimal digits at the
// same place of the other?
bool Match(const std::string& left, const std::string& right);

// Finds which of a list of names match a given one, without holding it against all of them. The
// list must outlive the object.
class TIndex {
public:
    explicit TIndex(const std::vector<std::string>& names);

    // The positions of the names that match.
    std::vector<std::size_t> Find(const std::string& name);

private:
    using TPositions = std::unordered_map<std::string, std::vector<std::size_t>>;

    void Append(const TPositions& candidates, const std::string& key, const std::string& name,
                std::vector<std::size_t>& found) const;

    const std::vector<std::string>& m_Names;
    TPositions m_Exact;      // names without "*", by themselves
    TPositions m_Wildcards;  // names with "*", by what is left of them when their runs are opened
    std::vector<std::vector<bool>> m_OpenRuns;  // the different ways in which these are opened
    TPositions m_AllShapes;  // all names by their shape; filled when first needed
};

}  // namespace OstelNameMatch

#endif
