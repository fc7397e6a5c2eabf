#ifndef XML_MODEL_LOADER_H
#define XML_MODEL_LOADER_H

#include <string>

#include "Schema.h"

// Adds what a data-model definition of the Broadband Forum describes to the schema: an XML document
// of the dm:document kind, for CWMP or USP, in its flattened ("full") form, in which nothing is
// left to be imported. Deprecated, obsoleted and deleted items are left out. A parameter without a
// default, or with one that its type does not allow, starts at a value that the type allows.
// Throws std::runtime_error with the file, the line and the cause.
void LoadXmlModel(const std::string& path, TSchema& schema);

#endif
