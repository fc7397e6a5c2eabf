#ifndef TREE_READER_H
#define TREE_READER_H

#include <functional>
#include <string>
#include <string_view>

#include "ObjectTree.h"
#include "Path.h"
#include "Schema.h"
#include "tOstelTypes.h"

// Finds what is committed under a name: a parameter, everything below a partial path, or with "*"
// for path elements all that match.
class TTreeReader {
public:
    using TOnParameter = std::function<void(const std::string& name, const std::string& value)>;
    // Gives how much the object takes in the reply.
    using TOnObject = std::function<std::size_t(const std::string& path)>;

    // Either may be empty. Objects are told with a point at the end of their path, tables too.
    // `size` is what other names have put into the reply already.
    TTreeReader(const std::string& name, TOnParameter onParameter, TOnObject onObject,
                std::size_t size = 0);

    // RC_INVALID_PARAM_NAME when the model knows no such name, RC_BUFFER_OVERFLOW when all the
    // names and values would not fit into a reply.
    tOstelReturnCode Read(const TObjectDefinition& rootDefinition, const TObject& root);

    // How much there is in the reply now.
    std::size_t Size() const { return m_Size; }

private:
    void Match(const TObjectDefinition& definition, const TObject& object, std::size_t position);
    void MatchChild(const TObjectDefinition& definition, const TInstances& instances,
                    std::size_t position);
    void MatchInstance(const TObjectDefinition& definition, unsigned int number,
                       const TObject& object, std::size_t position);
    bool IsKnown(const TObjectDefinition& definition, std::size_t position) const;
    void TakeAll(const TObjectDefinition& definition, const TObject& object);
    void TakeChild(const TObjectDefinition& definition, const TInstances& instances);
    void TakeParameter(const TParamDefinition& definition, const std::string& value);
    void TakeObject();
    bool IsFull() const;

    const std::string m_Name;
    const TPath m_Pattern;
    const TOnParameter m_OnParameter;
    const TOnObject m_OnObject;
    std::string m_Path;  // of where the reader stands
    std::size_t m_Size;
    bool m_IsFound = false;
};

#endif
