#include "TreeReader.h"

#include <utility>

namespace {

// More than this fits into no message of the bus; there is no use in collecting it.
constexpr std::size_t LARGEST_REPLY = std::size_t{32} * 1024 * 1024;
// What a parameter takes in a reply besides its name and value.
constexpr std::size_t REPLY_OVERHEAD = sizeof(R"({"NAME":"","VALUE":""},)") - 1;

// Appends an element to a path for as long as it lives.
class TStep {
public:
    TStep(std::string& path, std::string_view element) : m_Path(path), m_Length(path.size()) {
        m_Path.append(element).push_back('.');
    }
    TStep(const TStep&) = delete;
    TStep& operator=(const TStep&) = delete;
    ~TStep() { m_Path.resize(m_Length); }

private:
    std::string& m_Path;
    std::size_t m_Length;
};

bool Matches(std::string_view pattern, std::string_view name) {
    return pattern == "*" || pattern == name;
}

}  // namespace

TTreeReader::TTreeReader(const std::string& name, TOnParameter onParameter, TOnObject onObject,
                         std::size_t size)
    : m_Name(name),
      m_Pattern(m_Name),
      m_OnParameter(std::move(onParameter)),
      m_OnObject(std::move(onObject)),
      m_Size(size) {}

tOstelReturnCode TTreeReader::Read(const TObjectDefinition& rootDefinition, const TObject& root) {
    Match(rootDefinition, root, 0);
    if (IsFull()) {
        return RC_BUFFER_OVERFLOW;
    }
    return m_IsFound ? RC_SUCCESS : RC_INVALID_PARAM_NAME;
}

void TTreeReader::Match(const TObjectDefinition& definition, const TObject& object,
                        std::size_t position) {
    const std::string_view wanted = m_Pattern.elements[position];
    if (position + 1 == m_Pattern.elements.size() && !m_Pattern.isObject) {
        const bool any = wanted == "*";
        const std::size_t index = any ? 0 : definition.Parameter(wanted);
        const std::size_t end = any ? definition.parameters.size() : index + 1;
        for (std::size_t i = index; i != TObjectDefinition::NOT_THERE && i < end; ++i) {
            TakeParameter(definition.parameters[i], object.values[i]);
            m_IsFound = true;
        }
        return;
    }
    if (wanted != "*") {
        const std::size_t child = definition.Child(wanted);
        if (child != TObjectDefinition::NOT_THERE) {
            MatchChild(*definition.children[child], object.children[child], position + 1);
        }
        return;
    }
    for (std::size_t i = 0; i < definition.children.size(); ++i) {
        MatchChild(*definition.children[i], object.children[i], position + 1);
    }
}

void TTreeReader::MatchChild(const TObjectDefinition& definition, const TInstances& instances,
                             std::size_t position) {
    if (position == m_Pattern.elements.size()) {
        m_IsFound = true;
        TakeChild(definition, instances);
        return;
    }
    const TStep step(m_Path, definition.name);
    if (!definition.isTable) {
        Match(definition, instances.objects.at(0), position);
        return;
    }
    const std::string_view wanted = m_Pattern.elements[position];
    if (wanted != "*") {
        const auto number = ToInstanceNumber(wanted);
        const auto found = number ? instances.objects.find(*number) : instances.objects.end();
        if (found != instances.objects.end()) {
            MatchInstance(definition, found->first, found->second, position + 1);
        }
        return;
    }
    // An empty table has nothing to give, yet its names are not wrong.
    m_IsFound = m_IsFound || IsKnown(definition, position + 1);
    for (const auto& [number, object] : instances.objects) {
        MatchInstance(definition, number, object, position + 1);
    }
}

void TTreeReader::MatchInstance(const TObjectDefinition& definition, unsigned int number,
                                const TObject& object, std::size_t position) {
    if (!object.IsVisible(TView::COMMITTED)) {
        return;
    }
    const TStep step(m_Path, std::to_string(number));
    if (position < m_Pattern.elements.size()) {
        Match(definition, object, position);
    } else if (m_Pattern.isObject) {
        m_IsFound = true;
        TakeObject();
        TakeAll(definition, object);
    }
}

bool TTreeReader::IsKnown(const TObjectDefinition& definition, std::size_t position) const {
    if (position == m_Pattern.elements.size()) {
        return m_Pattern.isObject;
    }
    const std::string_view wanted = m_Pattern.elements[position];
    if (position + 1 == m_Pattern.elements.size() && !m_Pattern.isObject) {
        return wanted == "*" ? !definition.parameters.empty()
                             : definition.Parameter(wanted) != TObjectDefinition::NOT_THERE;
    }
    for (const auto& child : definition.children) {
        const std::size_t next = position + 1;
        if (!Matches(wanted, child->name)) {
            continue;
        }
        if (next == m_Pattern.elements.size() || (!child->isTable && IsKnown(*child, next)) ||
            (child->isTable && m_Pattern.elements[next] == "*" && IsKnown(*child, next + 1))) {
            return true;
        }
    }
    return false;
}

void TTreeReader::TakeChild(const TObjectDefinition& definition, const TInstances& instances) {
    const TStep step(m_Path, definition.name);
    TakeObject();
    if (!definition.isTable) {
        TakeAll(definition, instances.objects.at(0));
        return;
    }
    for (const auto& [number, object] : instances.objects) {
        if (object.IsVisible(TView::COMMITTED)) {
            const TStep instanceStep(m_Path, std::to_string(number));
            TakeObject();
            TakeAll(definition, object);
        }
    }
}

void TTreeReader::TakeAll(const TObjectDefinition& definition, const TObject& object) {
    for (std::size_t i = 0; i < object.values.size() && !IsFull(); ++i) {
        TakeParameter(definition.parameters[i], object.values[i]);
    }
    for (std::size_t i = 0; i < object.children.size() && !IsFull(); ++i) {
        TakeChild(*definition.children[i], object.children[i]);
    }
}

void TTreeReader::TakeParameter(const TParamDefinition& definition, const std::string& value) {
    if (m_OnParameter && !IsFull()) {
        m_Size += m_Path.size() + definition.name.size() + value.size() + REPLY_OVERHEAD;
        m_OnParameter(m_Path + definition.name, value);
    }
}

void TTreeReader::TakeObject() {
    if (m_OnObject && !IsFull()) {
        m_Size += m_OnObject(m_Path);
    }
}

bool TTreeReader::IsFull() const {
    return m_Size > LARGEST_REPLY;
}
