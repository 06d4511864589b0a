#pragma once

#include "minijson/entity.h"

#include <string>

namespace minijson {

// A string value: the bytes as received (UTF-8 from a bridge), escapes already resolved.
class CString final : public CEntity
{
public:
    explicit CString(std::string value = std::string()) : CEntity(EKind::String), m_value(std::move(value)) {}

    const std::string& Value() const noexcept { return m_value; }
    void SetString(std::string value) { m_value = std::move(value); }

    std::unique_ptr<CEntity> Copy() const override { return std::make_unique<CString>(m_value); }

private:
    friend struct detail::TreeAccess;

    struct RawText
    {
    };
    CString(const char* text, std::size_t length, RawText) : CEntity(EKind::String), m_value(text, length) {}

    std::string m_value;
};

class CBoolean final : public CEntity
{
public:
    explicit CBoolean(bool value = false) : CEntity(EKind::Boolean), m_value(value) {}

    bool Value() const noexcept { return m_value; }
    void SetBool(bool value) noexcept { m_value = value; }

    std::unique_ptr<CEntity> Copy() const override { return std::make_unique<CBoolean>(m_value); }

private:
    bool m_value;
};

class CNull final : public CEntity
{
public:
    CNull() : CEntity(EKind::Null) {}

    std::unique_ptr<CEntity> Copy() const override { return std::make_unique<CNull>(); }
};

} // namespace minijson
