// Published properties without a language's run-time type information: each class declares
// a table of its properties (name, kind, getter, setter) in declaration order, after the
// table of its base, and every property operation walks that table.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "csVariant.h"

namespace tmi {

class TcsPersistent;

enum class TcsPropertyKind : uint8_t { Integer, Float, String, Boolean, Enumeration, DateTime, Object, Variant };

struct TcsPropertyInfo {
    std::string fName;
    TcsPropertyKind fKind = TcsPropertyKind::Variant;
    std::string fTypeName;
    std::function<TcsVariant(const TcsPersistent&)> fGet;
    std::function<void(TcsPersistent&, const TcsVariant&)> fSet;  // empty: read-only
    std::function<TcsPersistent*(const TcsPersistent&)> fGetObject;  // object properties
    std::vector<std::string> fEnumNames;  // names of an enumeration, by ordinal

    [[nodiscard]] bool ReadOnly() const noexcept { return !fSet; }
};

class TcsPropertyTable {
public:
    TcsPropertyTable(const TcsPropertyTable* aBase, std::initializer_list<TcsPropertyInfo> aOwn);
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fAll.size()); }
    [[nodiscard]] const TcsPropertyInfo& At(int aIndex) const { return fAll.at(static_cast<size_t>(aIndex)); }
    // Names compare without regard to case; nullptr when absent.
    [[nodiscard]] const TcsPropertyInfo* Find(std::string_view aName) const;
    [[nodiscard]] int IndexOf(std::string_view aName) const;
    [[nodiscard]] const std::vector<TcsPropertyInfo>& All() const noexcept { return fAll; }

private:
    std::vector<TcsPropertyInfo> fAll;  // the base's first, then the class's own
};

namespace detail {

template <class T>
constexpr TcsPropertyKind KindOf() {
    using U = std::remove_cv_t<std::remove_reference_t<T>>;
    if constexpr (std::is_same_v<U, bool>) return TcsPropertyKind::Boolean;
    else if constexpr (std::is_enum_v<U>) return TcsPropertyKind::Enumeration;
    else if constexpr (std::is_integral_v<U>) return TcsPropertyKind::Integer;
    else if constexpr (std::is_floating_point_v<U>) return TcsPropertyKind::Float;
    else if constexpr (std::is_same_v<U, std::string>) return TcsPropertyKind::String;
    else if constexpr (std::is_same_v<U, TDateTime>) return TcsPropertyKind::DateTime;
    else if constexpr (std::is_pointer_v<U>) return TcsPropertyKind::Object;
    else return TcsPropertyKind::Variant;
}

template <class T>
TcsVariant ToVariant(const T& aValue) {
    using U = std::remove_cv_t<std::remove_reference_t<T>>;
    if constexpr (std::is_same_v<U, bool>) return TcsVariant(aValue);
    else if constexpr (std::is_enum_v<U>) return TcsVariant(static_cast<int64_t>(aValue));
    else if constexpr (std::is_integral_v<U>) return TcsVariant(static_cast<int64_t>(aValue));
    else if constexpr (std::is_floating_point_v<U>) return TcsVariant(static_cast<double>(aValue));
    else if constexpr (std::is_same_v<U, std::string>) return TcsVariant(aValue);
    else if constexpr (std::is_same_v<U, TDateTime>) return TcsVariant(aValue);
    else if constexpr (std::is_same_v<U, TcsVariant>) return aValue;
    else return TcsVariant(static_cast<const void*>(aValue));
}

template <class T>
T FromVariant(const TcsVariant& aValue) {
    if constexpr (std::is_same_v<T, bool>) return aValue.AsBoolean();
    else if constexpr (std::is_enum_v<T>) return static_cast<T>(aValue.AsInteger());
    else if constexpr (std::is_integral_v<T>) return static_cast<T>(aValue.AsInteger());
    else if constexpr (std::is_floating_point_v<T>) return static_cast<T>(aValue.AsFloat());
    else if constexpr (std::is_same_v<T, std::string>) return aValue.AsString();
    else if constexpr (std::is_same_v<T, TDateTime>) return aValue.AsDateTime();
    else if constexpr (std::is_same_v<T, TcsVariant>) return aValue;
}

template <class T>
const char* TypeNameOf() {
    using U = std::remove_cv_t<std::remove_reference_t<T>>;
    if constexpr (std::is_same_v<U, bool>) return "Boolean";
    else if constexpr (std::is_enum_v<U>) return "Enumeration";
    else if constexpr (std::is_integral_v<U>) return sizeof(U) > 4 ? "Int64" : "Integer";
    else if constexpr (std::is_floating_point_v<U>) return "Double";
    else if constexpr (std::is_same_v<U, std::string>) return "string";
    else if constexpr (std::is_same_v<U, TDateTime>) return "TDateTime";
    else if constexpr (std::is_same_v<U, TcsVariant>) return "Variant";
    else return "TObject";
}

}  // namespace detail

// A property over a field.
template <class C, class T>
TcsPropertyInfo Field(const char* aName, T C::*aField, bool aReadOnly = false) {
    TcsPropertyInfo p;
    p.fName = aName;
    p.fKind = detail::KindOf<T>();
    p.fTypeName = detail::TypeNameOf<T>();
    p.fGet = [aField](const TcsPersistent& o) { return detail::ToVariant(static_cast<const C&>(o).*aField); };
    if (!aReadOnly)
        p.fSet = [aField](TcsPersistent& o, const TcsVariant& v) { static_cast<C&>(o).*aField = detail::FromVariant<T>(v); };
    return p;
}

// A property over a getter and a setter (nullptr: read-only).
template <class C, class R, class A>
TcsPropertyInfo Property(const char* aName, R (C::*aGetter)() const, void (C::*aSetter)(A)) {
    using T = std::remove_cv_t<std::remove_reference_t<R>>;
    TcsPropertyInfo p;
    p.fName = aName;
    p.fKind = detail::KindOf<T>();
    p.fTypeName = detail::TypeNameOf<T>();
    p.fGet = [aGetter](const TcsPersistent& o) { return detail::ToVariant((static_cast<const C&>(o).*aGetter)()); };
    if (aSetter)
        p.fSet = [aSetter](TcsPersistent& o, const TcsVariant& v) {
            (static_cast<C&>(o).*aSetter)(detail::FromVariant<std::remove_cv_t<std::remove_reference_t<A>>>(v));
        };
    return p;
}

template <class C, class R>
TcsPropertyInfo Property(const char* aName, R (C::*aGetter)() const) {
    return Property<C, R, R>(aName, aGetter, nullptr);
}

// An object property: a sub-object written as a child element.
template <class C, class O>
TcsPropertyInfo ObjectProperty(const char* aName, O* (C::*aGetter)() const) {
    TcsPropertyInfo p;
    p.fName = aName;
    p.fKind = TcsPropertyKind::Object;
    p.fTypeName = "TObject";
    p.fGetObject = [aGetter](const TcsPersistent& o) -> TcsPersistent* { return (static_cast<const C&>(o).*aGetter)(); };
    p.fGet = [aGetter](const TcsPersistent& o) {
        return TcsVariant(static_cast<const void*>((static_cast<const C&>(o).*aGetter)()));
    };
    // Object properties have a write path through their sub-object.
    p.fSet = [](TcsPersistent&, const TcsVariant&) {};
    return p;
}

// An object property over a getter that answers a reference: a sub-object the object holds.
template <class C, class O>
TcsPropertyInfo ObjectProperty(const char* aName, const O& (C::*aGetter)() const) {
    TcsPropertyInfo p;
    p.fName = aName;
    p.fKind = TcsPropertyKind::Object;
    p.fTypeName = "TObject";
    p.fGetObject = [aGetter](const TcsPersistent& o) -> TcsPersistent* {
        return const_cast<O*>(&(static_cast<const C&>(o).*aGetter)());
    };
    p.fGet = [aGetter](const TcsPersistent& o) {
        return TcsVariant(static_cast<const void*>(&(static_cast<const C&>(o).*aGetter)()));
    };
    p.fSet = [](TcsPersistent&, const TcsVariant&) {};
    return p;
}

// An enumeration written by the names of its values.
template <class C, class E>
TcsPropertyInfo EnumProperty(const char* aName, E (C::*aGetter)() const, void (C::*aSetter)(E),
                             std::vector<std::string> aNames) {
    TcsPropertyInfo p = Property(aName, aGetter, aSetter);
    p.fEnumNames = std::move(aNames);
    return p;
}

}  // namespace tmi
