#pragma once

#include <type_traits>

namespace varnex
{

// Owns one resource that a single system call gives back. Move-only; closing keeps the caller's last error where the
// traits' Close does. Traits: `Type`, `Invalid()`, `Close(Type)`.
template <class Traits>
class UniqueResource
{
public:
    using Type = typename Traits::Type;

    UniqueResource() noexcept = default;
    explicit UniqueResource(Type value) noexcept : m_value(value) {}
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.Release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept
    {
        if (this != &other)
        {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource() { Reset(); }

    Type Get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != Traits::Invalid(); }

    // Gives the resource up without closing it.
    Type Release() noexcept
    {
        const Type value = m_value;
        m_value = Traits::Invalid();
        return value;
    }
    void Reset(Type value = Traits::Invalid()) noexcept
    {
        const Type old = m_value;
        m_value = value;
        if (old != Traits::Invalid())
        {
            Traits::Close(old);
        }
    }
    // The place for a call that hands the resource out; what was owned before is closed.
    Type* Receive() noexcept
    {
        Reset();
        return &m_value;
    }

private:
    Type m_value = Traits::Invalid();
};

// Proves for an owner that it cannot be copied and moves without throwing.
template <class Owner>
inline constexpr bool isMoveOnly =
    !std::is_copy_constructible_v<Owner> && !std::is_copy_assignable_v<Owner> &&
    std::is_nothrow_move_constructible_v<Owner> && std::is_nothrow_move_assignable_v<Owner>;

} // namespace varnex
