#ifndef T_OSTEL_BLOB_H
#define T_OSTEL_BLOB_H

#include <string>
#include <vector>

#include "OstelApi.h"
#include "OstelContainer.h"

// Compiled once, into the library.
extern template class OstelContainer::TBaseContainerFacade<std::vector<unsigned char>>;
extern template class OstelContainer::TContainerFacade<std::vector<unsigned char>>;

// A buffer of bytes that it owns, made from and turned into texts and files, one byte for one
// character:
//
//     TOstelBlob key("");
//     if (!key.Load("/nvram/device.key")) {
//         return false;  // not there, read-only or empty
//     }
//     key.Add("\n", 1);
//     return key.Store("/nvram/device.key.new");
//
// One object serves one thread at a time. File problems show in the result only: nothing is logged,
// nothing throws. What no memory can hold does. Its layout is part of the binary interface.
class OSTEL_API TOstelBlob : public OstelContainer::TContainerFacade<std::vector<unsigned char>> {
public:
    explicit TOstelBlob(const std::vector<unsigned char>& bytes);
    explicit TOstelBlob(std::vector<unsigned char>&& bytes);
    explicit TOstelBlob(const std::string& text);
    // Empty when there is no area.
    TOstelBlob(const char* data, unsigned int size);
    TOstelBlob(const TOstelBlob&) = default;
    TOstelBlob(TOstelBlob&&) noexcept = default;
    TOstelBlob& operator=(const TOstelBlob&) = default;
    TOstelBlob& operator=(TOstelBlob&&) noexcept = default;
    ~TOstelBlob() override;

    void FromString(const std::string& text);
    void ToString(std::string& out) const;
    std::string ToString() const;

    // What is added may be part of the blob itself.
    void Add(const std::vector<unsigned char>& bytes);
    void Add(const std::string& text);
    // Returns where the new bytes start, good until the blob changes again; null, with nothing
    // added, when there is no area to take them from.
    unsigned char* Add(const char* data, unsigned int size);

    // Creates the file or replaces what is in it. False when not every byte could be written; the
    // file may then be there nevertheless, empty or cut short.
    bool Store(const std::string& path) const;

    // True when the blob has any bytes afterwards: an empty file empties it and is false. A file
    // that cannot be opened or read leaves it as it was; so does one that the process may not write
    // to, although it is only read.
    bool Load(const std::string& path);
};

#endif
