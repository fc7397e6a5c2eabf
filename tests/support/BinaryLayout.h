#ifndef BINARY_LAYOUT_H
#define BINARY_LAYOUT_H

#include <cstddef>
#include <cstring>

// Where the compiler puts what a class declares, so that tests can hold binary interfaces in place.
// Relies on the C++ ABI of the platforms that the library is built for.
namespace BinaryLayout {

// The slot of a virtual operation in its class's table, counted from 0. A pointer to a virtual
// member begins with the slot's place in bytes, plus one to tell it from a function's address; ARM,
// where that bit may be part of an address, marks it elsewhere.
template <typename Member>
std::size_t SlotOf(Member member) {
    std::ptrdiff_t place = 0;
    static_assert(sizeof(member) >= sizeof(place));
    std::memcpy(&place, &member, sizeof(place));
#if !defined(__arm__) && !defined(__aarch64__)
    --place;
#endif
    return static_cast<std::size_t>(place) / sizeof(void*);
}

// Where a member of this type lies that is declared behind what ends at the offset.
template <typename Member>
constexpr std::size_t Behind(std::size_t offset) {
    return (offset + alignof(Member) - 1) / alignof(Member) * alignof(Member);
}

}  // namespace BinaryLayout

// The offset of a data member in bytes; its pointer holds just that. Private members, too:
//     struct TName { friend std::size_t OffsetOf(TName); };
//     template struct MemberOffset<TName, &TClass::m_Name>;
//     ... OffsetOf(TName()) ...
// Outside of any namespace, so that the two friends are one function.
template <typename Tag, auto Member>
struct MemberOffset {
    friend std::size_t OffsetOf(Tag) {
        const auto member = Member;
        std::ptrdiff_t offset = 0;
        static_assert(sizeof(member) == sizeof(offset));
        std::memcpy(&offset, &member, sizeof(offset));
        return static_cast<std::size_t>(offset);
    }
};

#endif
