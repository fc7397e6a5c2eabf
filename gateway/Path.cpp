#include "Path.h"

#include <algorithm>
#include <charconv>

namespace {

// Takes the next element off a path; what a trailing point leaves behind is the empty element.
std::string_view NextElement(std::string_view& path, bool& more) {
    const std::size_t point = path.find('.');
    const std::string_view element = path.substr(0, point);
    more = point != std::string_view::npos;
    path.remove_prefix(more ? point + 1 : path.size());
    return element;
}

bool IsNumber(std::string_view element) {
    return !element.empty() && element[0] != '0' &&
           std::all_of(element.begin(), element.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int CompareElements(std::string_view left, std::string_view right) {
    if (left.empty() || right.empty()) {
        return static_cast<int>(right.empty()) - static_cast<int>(left.empty());
    }
    const bool leftIsNumber = IsNumber(left);
    if (leftIsNumber != IsNumber(right)) {
        return leftIsNumber ? -1 : 1;
    }
    if (leftIsNumber && left.size() != right.size()) {
        return left.size() < right.size() ? -1 : 1;
    }
    return left.compare(right);
}

}  // namespace

TPath::TPath(std::string_view text) : isObject(!text.empty() && text.back() == '.') {
    if (isObject) {
        text.remove_suffix(1);
    }
    bool more = true;
    while (more) {
        elements.push_back(NextElement(text, more));
    }
}

std::string ParentPath(const std::string& path) {
    const std::size_t end = path.empty() ? 0 : path.size() - 1;
    const std::size_t point = end > 0 ? path.rfind('.', end - 1) : std::string::npos;
    return point != std::string::npos ? path.substr(0, point + 1) : "";
}

std::string LastElement(const std::string& path) {
    const std::string element = path.substr(ParentPath(path).size());
    return !element.empty() && element.back() == '.' ? element.substr(0, element.size() - 1)
                                                     : element;
}

bool Covers(std::string_view name, std::string_view parameter) {
    const TPath wanted(name);
    const TPath path(parameter);
    const std::size_t size = wanted.elements.size();
    if (wanted.isObject ? path.elements.size() <= size : path.elements.size() != size) {
        return false;
    }
    return std::equal(wanted.elements.begin(), wanted.elements.end(), path.elements.begin(),
                      [](std::string_view pattern, std::string_view element) {
                          return pattern == "*" || pattern == element;
                      });
}

std::optional<unsigned int> ToInstanceNumber(std::string_view element) {
    unsigned int number = 0;
    const char* const end = element.data() + element.size();
    if (!IsNumber(element)) {
        return std::nullopt;
    }
    const auto result = std::from_chars(element.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional<unsigned int>(number)
                                                         : std::nullopt;
}

bool TPathLess::operator()(std::string_view left, std::string_view right) const {
    bool moreLeft = true;
    bool moreRight = true;
    while (moreLeft && moreRight) {
        const int order =
            CompareElements(NextElement(left, moreLeft), NextElement(right, moreRight));
        if (order != 0) {
            return order < 0;
        }
    }
    return !moreLeft && moreRight;
}
