// TcsVariant: the value of a setting or a published property.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace tmi {

// A date and time as days since 1899-12-30, the fraction being the time of day.
struct TDateTime {
    double fValue = 0;
    bool operator==(const TDateTime& o) const { return fValue == o.fValue; }
};

enum class TcsVarType : uint8_t { Empty, Integer, Boolean, Float, String, DateTime, Pointer };

class TcsVariant {
public:
    TcsVariant() = default;
    TcsVariant(int v) : fValue(static_cast<int64_t>(v)) {}
    TcsVariant(int64_t v) : fValue(v) {}
    TcsVariant(bool v) : fValue(v) {}
    TcsVariant(double v) : fValue(v) {}
    TcsVariant(const char* v) : fValue(std::string(v)) {}
    TcsVariant(std::string v) : fValue(std::move(v)) {}
    TcsVariant(std::string_view v) : fValue(std::string(v)) {}
    TcsVariant(TDateTime v) : fValue(v) {}
    TcsVariant(const void* v) : fValue(v) {}

    [[nodiscard]] TcsVarType Type() const noexcept { return static_cast<TcsVarType>(fValue.index()); }
    [[nodiscard]] bool IsEmpty() const noexcept { return Type() == TcsVarType::Empty; }

    // Conversions that never raise: what does not convert gives 0, false or "".
    [[nodiscard]] int64_t AsInteger() const;
    [[nodiscard]] bool AsBoolean() const;
    [[nodiscard]] double AsFloat() const;
    // "." as decimal separator; Booleans as "True"/"False"; dates as "dd.mm.yyyy hh:nn:ss".
    [[nodiscard]] std::string AsString() const;
    [[nodiscard]] TDateTime AsDateTime() const { return TDateTime{AsFloat()}; }
    // The text a String variant holds, without a copy; nullptr for the other types.
    [[nodiscard]] const std::string* StringPtr() const noexcept { return std::get_if<std::string>(&fValue); }
    [[nodiscard]] const void* AsPointer() const;

    // Same type and same value.
    bool operator==(const TcsVariant& o) const { return fValue == o.fValue; }
    bool operator!=(const TcsVariant& o) const { return !(*this == o); }

private:
    std::variant<std::monostate, int64_t, bool, double, std::string, TDateTime, const void*> fValue;
};

// Boolean conversion of text: "true"/"false" in any case, or a number (non-zero is true).
bool TryStrToBool(std::string_view aText, bool& aValue);
// Date-time text: "dd.mm.yyyy[ hh:nn[:ss]]" or ISO "yyyy-mm-dd[Thh:nn[:ss]]".
bool TryStrToDateTime(std::string_view aText, TDateTime& aValue);
std::string DateTimeToStr(TDateTime aValue);
TDateTime EncodeDateTime(int aYear, int aMonth, int aDay, int aHour = 0, int aMinute = 0, int aSecond = 0, int aMs = 0);
void DecodeDateTime(TDateTime aValue, int& aYear, int& aMonth, int& aDay, int& aHour, int& aMinute, int& aSecond, int& aMs);

}  // namespace tmi
