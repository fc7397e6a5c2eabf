#ifndef MODEL_LOADER_H
#define MODEL_LOADER_H

#include <string>

#include "Schema.h"

// Adds what a model file describes to the schema. Throws std::runtime_error with the file, the
// place in it and the cause. A file that starts with "<" is taken for XML, see XmlModelLoader.h.
//
// Another model file is a JSON document {"name": ..., "objects": [...]}; an object has
//   "path": "Device.Hosts.Host.{i}.", with "{i}" where instances have their number;
//   "parameters": [{"name", "type", "access": "readOnly" | "readWrite", "default",
//                   "minimum", "maximum", "minLength", "maxLength", "enumeration", "pattern"}];
// when its path has "{i}" in it
//   "instances": [{"id": 1, "parent": [2], "values": {"HostName": "laptop"}}], where "id" is the
//                number at the last "{i}" and "parent" holds those before it, outermost first;
// and when its path ends in "{i}."
//   "access": "readOnly" | "readWrite", whether instances may be added and deleted;
//   "minEntries", "maxEntries": how many there may be;
//   "entries": the name of the parent's parameter that counts the instances;
//   "uniqueKeys": [{"parameters": ["Name"]}], what tells instances from each other;
//   "indexMap": [{"app": 1, "platform": 3}], the platform's own numbers of the instances.
void LoadModel(const std::string& path, TSchema& schema);

#endif
