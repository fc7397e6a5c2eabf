#ifndef DATA_MODEL_H
#define DATA_MODEL_H

#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ParamType.h"
#include "tOstelTypes.h"

// Orders names by their path elements, instance numbers by their value: the parameters of one
// object stand together, and instance 2 before instance 10.
struct TPathLess {
    bool operator()(const std::string& left, const std::string& right) const;
};

// One parameter of an object, shared by all its instances.
struct TParamDefinition {
    std::string name;
    TParamType type;
    bool writable = false;
    std::string defaultValue;
};

// The typed tree of parameters: committed values, and over them the writes that wait for a commit.
// Not safe for concurrent use: the dispatcher holds a lock around it.
class TDataModel {
public:
    using TValues = std::vector<std::pair<std::string, std::string>>;

    // Building. Definitions stay where they are for the model's life.
    const TParamDefinition& Define(TParamDefinition definition);
    // False when the name is there already.
    bool AddParameter(const std::string& name, const TParamDefinition& definition,
                      const std::string& value);
    // A path of the model with "{i}" for instance numbers: of a parameter, or with a point at its
    // end of an object.
    void AddSchemaPath(const std::string& path);
    // Puts a value in place that was committed earlier; false when there is no such parameter or
    // its type does not allow the value any more.
    bool Restore(const std::string& name, const std::string& value);

    std::size_t Size() const { return m_Parameters.size(); }

    // Appends the committed values of a parameter, of everything below a partial path (which ends
    // in a point), or with "*" for path elements of all that match.
    tOstelReturnCode Get(const std::string& name, TValues& values) const;

    // Stages a write.
    tOstelReturnCode Set(const std::string& name, const std::string& value);

    // The staged writes that change something, and their becoming committed.
    TValues Changes() const;
    void Commit();

private:
    struct TParameter {
        const TParamDefinition* definition;
        std::string value;
    };
    using TParameters = std::map<std::string, TParameter, TPathLess>;

    bool IsKnown(const std::string& name) const;

    std::deque<TParamDefinition> m_Definitions;
    TParameters m_Parameters;
    std::set<std::string, TPathLess> m_SchemaPaths;
    std::map<std::string, std::string, TPathLess> m_Staged;
};

#endif
