#ifndef PATH_H
#define PATH_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A name of the data model, taken apart at its points. Views the text it was made of.
struct TPath {
    explicit TPath(std::string_view text);

    std::vector<std::string_view> elements;
    bool isObject;  // ends in a point: an object, or all that stands below it
};

// The path of what holds the object or parameter, with its point: of "A.B.1." it is "A.B.", and
// "1" is the last element. Empty at the root.
std::string ParentPath(const std::string& path);
std::string LastElement(const std::string& path);

// Does a name stand for this parameter: its own, a partial path above it, or one with "*" for path
// elements?
bool Covers(std::string_view name, std::string_view parameter);

// The number of an instance as it stands in a path; numbers have no leading zeros.
std::optional<unsigned int> ToInstanceNumber(std::string_view element);

// Orders names by their path elements, instance numbers by their value: the parameters of one
// object stand together, and instance 2 before instance 10.
struct TPathLess {
    bool operator()(std::string_view left, std::string_view right) const;
};

#endif
