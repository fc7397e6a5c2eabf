#ifndef SCHEMA_H
#define SCHEMA_H

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ParamType.h"

// A model that contradicts itself; the text tells the cause.
class TSchemaError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One parameter of an object, shared by all its instances.
struct TParamDefinition {
    std::string name;
    TParamType type;
    bool writable = false;
    std::string defaultValue;
};

// One object of a model. All instances of a table such as "Device.Hosts.Host.{i}." have one shape.
struct TObjectDefinition {
    static constexpr std::size_t NOT_THERE = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t UNBOUNDED = std::numeric_limits<std::size_t>::max();

    std::string name;
    bool isTable = false;

    // Of a table only.
    bool writable = false;  // instances may be added and deleted
    std::size_t minEntries = 0;
    std::size_t maxEntries = UNBOUNDED;
    std::string entries;                               // the parent's parameter that counts them
    std::vector<std::vector<std::string>> uniqueKeys;  // each a set of parameters
    std::map<unsigned int, unsigned int> indexMap;     // an instance's number on the platform

    std::vector<TParamDefinition> parameters;
    std::vector<std::unique_ptr<TObjectDefinition>> children;

    // Positions in `parameters` and `children`, or NOT_THERE.
    std::size_t Parameter(std::string_view name) const;
    std::size_t Child(std::string_view name) const;

    // Adds the parameter, or puts it in the place of one of the same name. Throws TSchemaError when
    // there is an object of this name.
    void Define(TParamDefinition definition);

    // The child of this name, made when it is not there. Throws TSchemaError when there is a
    // parameter of this name, or when one is a table and the other is not.
    TObjectDefinition& MakeChild(const std::string& name, bool isTable);

private:
    using TIndex = std::map<std::string, std::size_t, std::less<>>;

    TIndex m_ParameterIndex;
    TIndex m_ChildIndex;
};

// What model files describe: the shape of the tree, and the instances that it starts with. Files
// that are loaded one after the other are laid over each other.
class TSchema {
public:
    // An instance to start with: its path, the values that are not the default, and the place in
    // the file, for messages.
    struct TSeed {
        std::string place;
        std::string path;
        std::vector<std::pair<std::string, std::string>> values;
    };

    // The object of a path such as "Device.Hosts.Host.{i}.", made with all above it when it is not
    // there. Throws TSchemaError when there cannot be such an object.
    TObjectDefinition& MakeObject(const std::string& path);

    TObjectDefinition& Root() { return m_Root; }
    const TObjectDefinition& Root() const { return m_Root; }

    std::vector<TSeed>& Seeds() { return m_Seeds; }
    const std::vector<TSeed>& Seeds() const { return m_Seeds; }

private:
    TObjectDefinition m_Root;
    std::vector<TSeed> m_Seeds;
};

#endif
