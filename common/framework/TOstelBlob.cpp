#include "TOstelBlob.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <functional>
#include <utility>

#include "OstelSystemPath.h"

template class OstelContainer::TBaseContainerFacade<std::vector<unsigned char>>;
template class OstelContainer::TContainerFacade<std::vector<unsigned char>>;

using TBytes = std::vector<unsigned char>;

TOstelBlob::TOstelBlob(const TBytes& bytes) : TContainerFacade(bytes) {}

TOstelBlob::TOstelBlob(TBytes&& bytes) : TContainerFacade(std::move(bytes)) {}

TOstelBlob::TOstelBlob(const std::string& text)
    : TContainerFacade(TBytes(text.begin(), text.end())) {}

TOstelBlob::TOstelBlob(const char* data, unsigned int size)
    : TContainerFacade(data == nullptr ? TBytes() : TBytes(data, data + size)) {}

TOstelBlob::~TOstelBlob() = default;

void TOstelBlob::FromString(const std::string& text) {
    m_Container.assign(text.begin(), text.end());
}

void TOstelBlob::ToString(std::string& out) const {
    out.assign(m_Container.begin(), m_Container.end());
}

std::string TOstelBlob::ToString() const {
    return {m_Container.begin(), m_Container.end()};
}

void TOstelBlob::Add(const TBytes& bytes) {
    // By index, and as many as there were: the bytes may be this blob's own, which grow and move.
    const std::size_t size = bytes.size();
    for (std::size_t i = 0; i < size; ++i) {
        m_Container.push_back(bytes[i]);
    }
}

void TOstelBlob::Add(const std::string& text) {
    m_Container.insert(m_Container.end(), text.begin(), text.end());
}

unsigned char* TOstelBlob::Add(const char* data, unsigned int size) {
    if (data == nullptr && size != 0) {
        return nullptr;
    }
    const auto* source = reinterpret_cast<const unsigned char*>(data);
    const std::size_t before = m_Container.size();
    const unsigned char* const start = m_Container.data();
    // An order of all pointers, which '<' need not be.
    const std::less<> isBefore;
    const bool isOwn = !isBefore(source, start) && isBefore(source, start + before);
    const std::ptrdiff_t offset = isOwn ? source - start : 0;
    // Not by its new size: on 32 bits the sum may begin at 0 again.
    m_Container.insert(m_Container.end(), size, 0);
    unsigned char* const added = m_Container.data() + before;
    std::copy_n(isOwn ? m_Container.data() + offset : source, size, added);
    return added;
}

bool TOstelBlob::Store(const std::string& path) const {
    std::ofstream file(SystemPath(path), std::ios::out | std::ios::binary);
    if (!file.is_open()) {
        return false;
    }
    file.write(reinterpret_cast<const char*>(m_Container.data()),
               static_cast<std::streamsize>(m_Container.size()));
    // A few bytes stay in the stream's buffer at first, and fit there on a full disk, too.
    file.flush();
    return file.good();
}

bool TOstelBlob::Load(const std::string& path) {
    // Opened for writing as well, deliberately: what the process cannot write back is not loaded.
    std::ifstream file(SystemPath(path), std::ios::out | std::ios::binary);
    if (!file.is_open()) {
        return false;
    }
    TBytes bytes;
    std::array<char, 4096> chunk{};
    do {
        file.read(chunk.data(), chunk.size());
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + file.gcount());
    } while (file.good());
    if (file.bad()) {
        return false;
    }
    m_Container = std::move(bytes);
    return !m_Container.empty();
}
