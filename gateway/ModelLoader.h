#ifndef MODEL_LOADER_H
#define MODEL_LOADER_H

#include <string>

#include "DataModel.h"

// Adds what a model file describes to the data model. Throws std::runtime_error with the file, the
// place in it and the cause.
//
// A model file is a JSON document {"name": ..., "objects": [...]}; an object has
//   "path": "Device.Hosts.Host.{i}.", with "{i}" where instances have their number;
//   "parameters": [{"name", "type", "access": "readOnly" | "readWrite", "default",
//                   "minimum", "maximum", "minLength", "maxLength", "enumeration", "pattern"}];
// when its path has "{i}" in it
//   "instances": [{"id": 1, "parent": [2], "values": {"HostName": "laptop"}}], where "id" is the
//                number at the last "{i}" and "parent" holds those before it, outermost first;
// and when its path ends in "{i}."
//   "access": "readOnly" | "readWrite", whether instances may be added and deleted;
//   "entries": the name of the parent's parameter that counts the instances.
void LoadModel(const std::string& path, TDataModel& model);

#endif
