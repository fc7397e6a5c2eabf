#include "TOstelObjectFactory.h"

#include <stdexcept>

#include "zt_logging.h"

TOstelObjectBuilder::TOstelObjectBuilder(const std::string& name) {
    TOstelObjectFactory::GetInstance()->AddSingletonBuilder(name, *this);
}

TOstelObjectBuilder::~TOstelObjectBuilder() = default;

TOstelObjectFactory* TOstelObjectFactory::GetInstance() {
    static TOstelObjectFactory instance;
    return &instance;
}

TOstelObjectFactory::TOstelObjectFactory() = default;
TOstelObjectFactory::~TOstelObjectFactory() = default;

void TOstelObjectFactory::AddSingletonBuilder(const std::string& name,
                                              TOstelObjectBuilder& builder) {
    if (m_Objects.count(name) != 0) {
        ztLogging_log(ZT_LOG_LEVEL_WARNING,
                      "[TOstelObjectFactory] Builder object with name '%s' already exists!",
                      name.c_str());
    }
    // The last one counts, deliberately: a module may put its own class in the place of another's.
    m_Objects[name].builder = &builder;
}

IOstelObject* TOstelObjectFactory::GetObjectInstance(const std::string& name) {
    TSingletonObject& object = Find(name);
    if (!object.instance) {
        object.instance.reset(object.builder->CreateObject());
    }
    if (!object.instance) {
        throw std::runtime_error("[TOstelObjectFactory] Can't create object type: " + name);
    }
    return object.instance.get();
}

IOstelObject* TOstelObjectFactory::CreateObjectInstance(const std::string& name) {
    return Find(name).builder->CreateObject();
}

TOstelObjectFactory::TSingletonObject& TOstelObjectFactory::Find(const std::string& name) {
    const auto found = m_Objects.find(name);
    if (found == m_Objects.end()) {
        throw std::runtime_error("[TOstelObjectFactory] Can't find object type: " + name);
    }
    return found->second;
}
