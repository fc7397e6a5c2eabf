#ifndef OSTEL_CONTAINER_H
#define OSTEL_CONTAINER_H

#include <cstddef>
#include <utility>

#include "OstelApi.h"

// What classes that are a container, and something more, are built upon.
namespace OstelContainer {

// Holds the container. Its members and its one virtual operation, the destructor, are part of the
// binary interface.
template <typename Container>
class OSTEL_API TBaseContainerFacade {
public:
    TBaseContainerFacade() = default;
    explicit TBaseContainerFacade(const Container& container) : m_Container(container) {}
    explicit TBaseContainerFacade(Container&& container) : m_Container(std::move(container)) {}
    TBaseContainerFacade(const TBaseContainerFacade&) = default;
    TBaseContainerFacade(TBaseContainerFacade&&) noexcept = default;
    TBaseContainerFacade& operator=(const TBaseContainerFacade&) = default;
    TBaseContainerFacade& operator=(TBaseContainerFacade&&) noexcept = default;
    virtual ~TBaseContainerFacade() = default;

    const Container& GetContainer() const { return m_Container; }
    Container& GetContainer() { return m_Container; }

protected:
    Container m_Container;
};

// The container's contents, for loops and for C interfaces. What it returns is good until the
// contents change.
template <typename Container>
class OSTEL_API TContainerFacade : public TBaseContainerFacade<Container> {
public:
    using TBaseContainerFacade<Container>::TBaseContainerFacade;

    std::size_t Size() const { return this->m_Container.size(); }
    bool IsEmpty() const { return this->m_Container.empty(); }
    auto Data() const { return this->m_Container.data(); }
    auto Data() { return this->m_Container.data(); }

    auto begin() const { return this->m_Container.begin(); }
    auto begin() { return this->m_Container.begin(); }
    auto end() const { return this->m_Container.end(); }
    auto end() { return this->m_Container.end(); }
};

}  // namespace OstelContainer

#endif
