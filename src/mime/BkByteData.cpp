// BkByteData.cpp - public byte holder over a DataBuffer
#include "mime/BkByteData.h"

#include "textlib/buffers/DataBuffer.h"

BkByteData::BkByteData() : m_data(new brelkin::DataBuffer) {}

BkByteData::~BkByteData() {
    delete m_data;
    m_data = nullptr;
}

bool BkByteData::append(const void* bytes, uint32_t count) { return m_data->append(bytes, count); }

uint32_t BkByteData::getSize() const { return m_data->getSize(); }

const unsigned char* BkByteData::getData() const {
    return m_data->getSize() == 0 ? nullptr : m_data->getData();
}

void BkByteData::clear() { m_data->clear(); }
