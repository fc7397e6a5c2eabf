#ifndef PRIVATE_MEMBER_H
#define PRIVATE_MEMBER_H

// Lets a test reach a data member that is private, where what it holds cannot be seen otherwise:
//     struct TNameOfClass { friend std::string TClass::*MemberOf(TNameOfClass); };
//     template struct PrivateMember<TNameOfClass, &TClass::m_Name>;
//     ... object.*MemberOf(TNameOfClass()) ...
// Outside of any namespace, so that the two friends are one function, and with a name of its own
// for each in a program.
template <typename Tag, auto Member>
struct PrivateMember {
    friend auto MemberOf(Tag) -> decltype(Member) { return Member; }
};

#endif
