#ifndef T_OSTEL_DATA_MAPPER_H
#define T_OSTEL_DATA_MAPPER_H

#include <map>
#include <stdexcept>
#include <string>

#include "OstelApi.h"
#include "tOstelTypes.h"

// The one place where the shared enumerations are turned into their names and back, and where a
// client's logger name and data-model prefix are found. Process-wide; any thread may use it, and
// everything it hands out stays valid until the process exits. It throws TMappingException for
// what it does not know and never logs.
class OSTEL_API TOstelDataMapper {
public:
    class OSTEL_API TMappingException : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
        ~TMappingException() override;
    };

    class OSTEL_API IEnumMapping {
    public:
        virtual ~IEnumMapping() = default;
        // The runtime type name of the enumeration that the table maps.
        virtual std::string GetTypeName() const = 0;
    };

    template <typename T>
    class TEnumMapping;

    static TOstelDataMapper* GetInstance();

    TOstelDataMapper(const TOstelDataMapper&) = delete;
    TOstelDataMapper& operator=(const TOstelDataMapper&) = delete;
    virtual ~TOstelDataMapper();

    template <typename T>
    const std::string& MapEnumToString(T value) const;

    // Byte for byte: letter case counts.
    template <typename T>
    T MapStringToEnum(const std::string& text) const;

    const char* MapClientIdToLoggerName(tOstelClientId id) const;

    // The prefix of the client's own subtree; empty for the clients that have none.
    const char* MapClientIdToAppDataModel(tOstelClientId id) const;

    // A code of the platform's data-model service as a tOstelReturnCode value; -1 for codes that
    // the service does not have.
    static int MapRcPltToCmn(int platformCode);

private:
    TOstelDataMapper();

    std::map<std::string, IEnumMapping*> m_Registry;
    const TEnumMapping<tOstelClientId>* m_AppDataModels;
    const TEnumMapping<tOstelClientId>* m_LoggerNames;
};

#endif
