#ifndef FULL_MODEL_H
#define FULL_MODEL_H

#include <string>

// As large as the whole standard model: 1,400 objects, a third of them tables, some in each other.
// A document in XML.
inline std::string FullModel() {
    std::string document =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<dm:document xmlns:dm=\"urn:broadband-forum-org:cwmp:datamodel-1-10\" spec=\"urn:test\">\n"
        "<dataType name=\"Address\"><string><pattern value=\"([0-9A-F]{2}:){5}[0-9A-F]{2}\"/>"
        "</string></dataType>\n<model name=\"Device:2.15\">\n";
    for (int i = 0; i < 1400; ++i) {
        const std::string group = "Device.Group" + std::to_string(i / 28) + ".";
        const std::string path = i % 28 == 0   ? group
                                 : i % 3 == 0  ? group + "Table" + std::to_string(i) + ".{i}."
                                 : i % 14 == 1 ? group + "Table" + std::to_string(i / 28 * 28 + 3) +
                                                     ".{i}.Inner" + std::to_string(i) + ".{i}."
                                               : group + "Object" + std::to_string(i) + ".";
        document += "<object name=\"" + path + "\" access=\"readWrite\">\n";
        for (int j = 0; j < 8; ++j) {
            document +=
                "<parameter name=\"Parameter" + std::to_string(j) +
                "\" access=\"readWrite\"><description>What it is for.</description><syntax>" +
                (j % 2 == 0 ? "<dataType ref=\"Address\"/>"
                            : "<unsignedInt><range minInclusive=\"1\"/></unsignedInt>") +
                "</syntax></parameter>\n";
        }
        document += "</object>\n";
    }
    return document + "</model>\n</dm:document>\n";
}

#endif
