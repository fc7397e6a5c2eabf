#ifndef OBJECT_TREE_H
#define OBJECT_TREE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Schema.h"

// Reads see what is committed, writes what is staged.
enum class TView { COMMITTED, STAGED };

struct TInstances;

// One object with its values; these and the children stand in the order of its definition. Names
// are kept once, in the definition, so that a large tree stays small.
struct TObject {
    std::vector<std::string> values;
    std::vector<TInstances> children;
    bool added = false;    // waits for a commit to come
    bool deleted = false;  // waits for a commit to go

    // With all values at their defaults, and with as many inner instances as there have to be.
    static TObject Make(const TObjectDefinition& definition);

    // How many objects and parameters it has when it is made and filled, but no more than `most`.
    static std::size_t Size(const TObjectDefinition& definition, std::size_t fill,
                            std::size_t most);

    bool IsVisible(TView view) const { return view == TView::COMMITTED ? !added : !deleted; }

    // Adds instances to the tables below until each has so many, as far as it may.
    void Fill(const TObjectDefinition& definition, std::size_t fill);

    // Puts into every counting parameter below how many instances there are.
    void CountEntries(const TObjectDefinition& definition);

    // How many parameters this object and all below have.
    std::size_t CountParameters() const;
};

// The instances of a table; a single object stands alone at number 0.
struct TInstances {
    std::map<unsigned int, TObject> objects;
    unsigned int last = 0;  // the highest number that was ever given

    // The instance of this number, made when it is not there.
    TObject& Make(const TObjectDefinition& table, unsigned int number);

    std::size_t Count(TView view) const;
};

#endif
