#include "TOstelCommon.h"

#include "TOstelDataMapper.h"
#include "TOstelIpc.h"

TOstelCommon::TOstelCommon()
    : m_DataMapper(TOstelDataMapper::GetInstance()), m_Ipc(getOstelIpcInstance()) {}

TOstelCommon::~TOstelCommon() = default;
