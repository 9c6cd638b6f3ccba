// Text helpers of the common layer: durations and sizes as text, comparison without case,
// splitting, numbers without locale, GUIDs.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tmi {

// Base of the exceptions the foundation raises with a message.
class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The silent abort: a stop asked for by the operator, not an error.
class EAbort : public Exception {
public:
    EAbort() : Exception("Operation aborted") {}
};

// "1 д 2 ч 3 мин 4 сек 5 мс": parts that are zero are left out; with aShowMilliseconds
// false the milliseconds are never shown. The result is trimmed.
std::string TimeText(uint64_t aMilliseconds, bool aShowMilliseconds = true);
// "512 Б", "12 КБ", "3.4 МБ", "1.2 GБ".
std::string SizeText(uint64_t aBytes);

bool SameText(std::string_view a, std::string_view b);
int CompareText(std::string_view a, std::string_view b);
std::string LowerCase(std::string_view aText);
std::vector<std::string> Split(std::string_view aText, char aDelimiter);
std::string Trim(std::string_view aText);

// Numbers without locale: the shortest form that reads back, at most 15 significant digits.
std::string FloatToStr(double aValue);
// FloatToStr's text, appended.
void AppendFloat(std::string& aOut, double aValue);
// Fixed notation with aDecimals digits after the point (0 rounds half away from zero).
std::string FloatToFixed(double aValue, int aDecimals);
// Strict conversions: false when the whole text is not a number.
bool TryStrToInt(std::string_view aText, int64_t& aValue);
bool TryStrToFloat(std::string_view aText, double& aValue);

// The modal message to the operator: one text and an OK button. The window's side installs
// its box in ModalMessageHandler; without one the text goes to the standard error stream.
using TcsModalMessage = std::function<void(const std::string&)>;
TcsModalMessage& ModalMessageHandler();
void ShowModalMessage(const std::string& aText);

// A new GUID in the braced upper-case form, "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
std::string NewGUIDString();

// Two 64-bit halves of a random version-4 GUID: a generator per thread, seeded once from
// the system's random source. Raises "Не удалось получить новый GUID" when there is none.
struct TcsGUID {
    uint64_t fHigh = 0;
    uint64_t fLow = 0;
    static TcsGUID New();
    [[nodiscard]] std::string ToString() const;
    [[nodiscard]] bool IsNull() const noexcept { return fHigh == 0 && fLow == 0; }
};

}  // namespace tmi
