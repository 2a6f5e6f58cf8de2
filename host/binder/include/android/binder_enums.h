/*
 * Iteration over the values of a generated enumeration: for (auto value : ndk::enum_range<E>()).
 * Generated code lists the values by specialising ndk::internal::enum_values for its enumeration:
 *
 *     namespace ndk::internal {
 *     template <>
 *     constexpr inline std::array<E, N> enum_values<E> = {...};
 *     }
 */
#ifndef ANDROID_BINDER_ENUMS_H
#define ANDROID_BINDER_ENUMS_H

#include <array>
#include <iterator>

namespace ndk {

namespace internal {
// Declared only: an enumeration without a specialisation cannot be iterated.
template <typename EnumType>
extern const std::array<EnumType, 0> enum_values;
}  // namespace internal

template <typename EnumType>
struct enum_range {
    constexpr auto begin() const { return std::begin(internal::enum_values<EnumType>); }
    constexpr auto end() const { return std::end(internal::enum_values<EnumType>); }
};

}  // namespace ndk

#endif /* ANDROID_BINDER_ENUMS_H */
