#ifndef T_OSTEL_COMMON_H
#define T_OSTEL_COMMON_H

#include "OstelApi.h"

class TOstelDataMapper;
class TOstelIpc;

// The two services that every framework object works with. Both live until the process exits.
class OSTEL_API TOstelCommon {
public:
    TOstelCommon();
    virtual ~TOstelCommon();

protected:
    TOstelDataMapper* m_DataMapper;
    TOstelIpc* m_Ipc;
};

#endif
