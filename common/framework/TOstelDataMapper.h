#ifndef T_OSTEL_DATA_MAPPER_H
#define T_OSTEL_DATA_MAPPER_H

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <map>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

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
        TMappingException(const TMappingException&) = default;
        TMappingException& operator=(const TMappingException&) = default;
        ~TMappingException() override;
    };

    // One enumeration's table.
    class OSTEL_API IEnumMapping {
    public:
        IEnumMapping() = default;
        IEnumMapping(const IEnumMapping&) = delete;
        IEnumMapping& operator=(const IEnumMapping&) = delete;
        virtual ~IEnumMapping();
        // The runtime type name of the enumeration that the table maps.
        virtual std::string GetTypeName() const = 0;
    };

    template <typename T>
    class TEnumMapping : public IEnumMapping {
    public:
        TEnumMapping(std::initializer_list<std::pair<T, std::string>> rows) {
            for (const auto& row : rows) {
                m_Strings.emplace(row.first, row.second);
                m_Values.emplace(row.second, row.first);
            }
        }

        // For tables of constants, which would be large as code that makes each text.
        template <std::size_t Size>
        explicit TEnumMapping(const std::pair<T, const char*> (&rows)[Size]) {
            for (const auto& row : rows) {
                m_Strings.emplace(row.first, row.second);
                m_Values.emplace(row.second, row.first);
            }
        }

        std::string GetTypeName() const override { return typeid(T).name(); }

        const std::string& GetString(T value) const {
            const auto found = m_Strings.find(value);
            if (found != m_Strings.end()) {
                return found->second;
            }
            ThrowNoString(typeid(T).name(), static_cast<int>(value));
        }

        T GetValue(const std::string& text) const {
            const auto found = m_Values.find(text);
            if (found != m_Values.end()) {
                return found->second;
            }
            ThrowNoValue(typeid(T).name(), text);
        }

    private:
        std::map<T, std::string> m_Strings;
        std::map<std::string, T> m_Values;
    };

    static TOstelDataMapper* GetInstance();

    TOstelDataMapper(const TOstelDataMapper&) = delete;
    TOstelDataMapper& operator=(const TOstelDataMapper&) = delete;
    virtual ~TOstelDataMapper();

    // The name of a value of one of the enumerations of tOstelTypes.h.
    template <typename T>
    const std::string& MapEnumToString(T value) const {
        return FindMapping<T>().GetString(value);
    }

    // Byte for byte: letter case counts.
    template <typename T>
    T MapStringToEnum(const std::string& text) const {
        return FindMapping<T>().GetValue(text);
    }

    const char* MapClientIdToLoggerName(tOstelClientId id) const;

    // The prefix of the client's own subtree; empty for the clients that have none.
    const char* MapClientIdToAppDataModel(tOstelClientId id) const;

    // A code of the platform's data-model service as a tOstelReturnCode value; -1 for codes that
    // the service does not have.
    static int MapRcPltToCmn(int platformCode);

private:
    TOstelDataMapper();

    template <typename T>
    const TEnumMapping<T>& FindMapping() const {
        return static_cast<const TEnumMapping<T>&>(FindMapping(typeid(T).name()));
    }

    const IEnumMapping& FindMapping(const char* typeName) const;
    [[noreturn]] static void ThrowNoString(const char* typeName, int value);
    [[noreturn]] static void ThrowNoValue(const char* typeName, const std::string& text);

    // Compared transparently, so that a lookup makes no key: no lookup allocates.
    std::map<std::string, IEnumMapping*, std::less<>> m_Registry;
    const TEnumMapping<tOstelClientId>* m_AppDataModels;
    const TEnumMapping<tOstelClientId>* m_LoggerNames;
};

#endif
