#ifndef T_OSTEL_OBJECT_FACTORY_H
#define T_OSTEL_OBJECT_FACTORY_H

#include <map>
#include <memory>
#include <string>

#include "OstelApi.h"

// What the factory makes: objects that it can destroy without knowing more of them.
class OSTEL_API IOstelObject {
public:
    virtual ~IOstelObject() = default;
};

// Makes the objects of one name. It registers itself when it is built, usually as a static object
// of the module whose class it makes, and stays owned by whoever built it. It must live until the
// factory is asked for that name for the last time.
class OSTEL_API TOstelObjectBuilder {
public:
    explicit TOstelObjectBuilder(const std::string& name);
    TOstelObjectBuilder(const TOstelObjectBuilder&) = delete;
    TOstelObjectBuilder& operator=(const TOstelObjectBuilder&) = delete;
    virtual ~TOstelObjectBuilder();

    // The caller owns the new object; null when none can be made.
    virtual IOstelObject* CreateObject() = 0;
};

// The process's registry of builders, through which a module gets an object by name without
// knowing its class. In the module that has the class:
//
//     class TLedBuilder : public TOstelObjectBuilder {
//     public:
//         TLedBuilder() : TOstelObjectBuilder("Led") {}
//         IOstelObject* CreateObject() override { return new TLed; }
//     };
//     static TLedBuilder ledBuilder;
//
// And wherever a lamp is needed:
//
//     TOstelObjectFactory& factory = *TOstelObjectFactory::GetInstance();
//     auto* led = dynamic_cast<ILed*>(factory.GetObjectInstance("Led"));
//
// Only GetInstance may be called from any thread; there is no lock, so callers see to it that no
// two threads are in the other operations. The shared objects are destroyed as the process exits.
class OSTEL_API TOstelObjectFactory {
public:
    static TOstelObjectFactory* GetInstance();

    TOstelObjectFactory(const TOstelObjectFactory&) = delete;
    TOstelObjectFactory& operator=(const TOstelObjectFactory&) = delete;
    virtual ~TOstelObjectFactory();

    // A name that is there already is logged and gets the new builder; its shared object, once
    // made, stays.
    void AddSingletonBuilder(const std::string& name, TOstelObjectBuilder& builder);

    // The one shared object of the name, made at the first call; the factory owns it. Throws
    // std::runtime_error when the name is unknown or the builder cannot make the object, which the
    // next call tries again.
    IOstelObject* GetObjectInstance(const std::string& name);

    // A new object with each call, owned by the caller; null when the builder cannot make one.
    // Throws std::runtime_error when the name is unknown.
    IOstelObject* CreateObjectInstance(const std::string& name);

private:
    struct TSingletonObject {
        TOstelObjectBuilder* builder = nullptr;
        std::shared_ptr<IOstelObject> instance;
    };

    TOstelObjectFactory();

    TSingletonObject& Find(const std::string& name);

    std::map<std::string, TSingletonObject> m_Objects;
};

#endif
