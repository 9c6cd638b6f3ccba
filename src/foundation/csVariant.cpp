#include "csVariant.h"

#include <cmath>
#include <cstdio>

#include "csCommon.h"

namespace tmi {

namespace {

// Days from 0001-01-01 (proleptic Gregorian) to the given date.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;  // days since 1970-01-01
}

void CivilFromDays(int64_t z, int& y, int& m, int& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t yy = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yy + (m <= 2));
}

constexpr int64_t kDelphiEpochFrom1970 = -25569;  // 1899-12-30 is 25569 days before 1970-01-01

bool ValidDate(int y, int m, int d) {
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (y < 1 || y > 9999 || m < 1 || m > 12 || d < 1) return false;
    const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    return d <= kDays[m - 1] + (m == 2 && leap ? 1 : 0);
}

}  // namespace

TDateTime EncodeDateTime(int aYear, int aMonth, int aDay, int aHour, int aMinute, int aSecond, int aMs) {
    const int64_t days = DaysFromCivil(aYear, static_cast<unsigned>(aMonth), static_cast<unsigned>(aDay)) - kDelphiEpochFrom1970;
    const double time = (aHour * 3600000.0 + aMinute * 60000.0 + aSecond * 1000.0 + aMs) / 86400000.0;
    return TDateTime{static_cast<double>(days) + (days < 0 ? -time : time)};
}

void DecodeDateTime(TDateTime aValue, int& aYear, int& aMonth, int& aDay, int& aHour, int& aMinute, int& aSecond, int& aMs) {
    const double whole = std::trunc(aValue.fValue);
    CivilFromDays(static_cast<int64_t>(whole) + kDelphiEpochFrom1970, aYear, aMonth, aDay);
    int64_t ms = static_cast<int64_t>(std::llround(std::fabs(aValue.fValue - whole) * 86400000.0));
    if (ms >= 86400000) ms = 86399999;
    aHour = static_cast<int>(ms / 3600000);
    aMinute = static_cast<int>(ms / 60000 % 60);
    aSecond = static_cast<int>(ms / 1000 % 60);
    aMs = static_cast<int>(ms % 1000);
}

std::string DateTimeToStr(TDateTime aValue) {
    int y, m, d, h, n, s, ms;
    DecodeDateTime(aValue, y, m, d, h, n, s, ms);
    char buf[40];
    if (h == 0 && n == 0 && s == 0)
        std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", d, m, y);
    else
        std::snprintf(buf, sizeof buf, "%02d.%02d.%04d %02d:%02d:%02d", d, m, y, h, n, s);
    return buf;
}

bool TryStrToDateTime(std::string_view aText, TDateTime& aValue) {
    const std::string t = Trim(aText);
    int y = 0, m = 0, d = 0, h = 0, n = 0, s = 0;
    char c1 = 0;
    int got = 0;
    if ((got = std::sscanf(t.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d", &y, &m, &d, &c1, &h, &n, &s)) >= 3 &&
        (got == 3 || c1 == 'T' || c1 == ' ')) {
        // ISO form
    } else if ((got = std::sscanf(t.c_str(), "%2d.%2d.%4d %2d:%2d:%2d", &d, &m, &y, &h, &n, &s)) >= 3) {
    } else {
        return false;
    }
    if (!ValidDate(y, m, d) || h > 23 || n > 59 || s > 59 || h < 0 || n < 0 || s < 0) return false;
    aValue = EncodeDateTime(y, m, d, h, n, s);
    return true;
}

bool TryStrToBool(std::string_view aText, bool& aValue) {
    const std::string t = LowerCase(Trim(aText));
    if (t == "true") {
        aValue = true;
        return true;
    }
    if (t == "false") {
        aValue = false;
        return true;
    }
    double f = 0;
    if (TryStrToFloat(t, f)) {
        aValue = f != 0;
        return true;
    }
    return false;
}

int64_t TcsVariant::AsInteger() const {
    switch (Type()) {
        case TcsVarType::Integer: return std::get<int64_t>(fValue);
        case TcsVarType::Boolean: return std::get<bool>(fValue) ? 1 : 0;
        case TcsVarType::Float: return static_cast<int64_t>(std::llround(std::get<double>(fValue)));
        case TcsVarType::DateTime: return static_cast<int64_t>(std::get<TDateTime>(fValue).fValue);
        case TcsVarType::String: {
            int64_t v = 0;
            return TryStrToInt(std::get<std::string>(fValue), v) ? v : 0;
        }
        default: return 0;
    }
}

bool TcsVariant::AsBoolean() const {
    switch (Type()) {
        case TcsVarType::Boolean: return std::get<bool>(fValue);
        case TcsVarType::String: {
            bool b = false;
            return TryStrToBool(std::get<std::string>(fValue), b) && b;
        }
        default: return AsFloat() != 0;
    }
}

double TcsVariant::AsFloat() const {
    switch (Type()) {
        case TcsVarType::Integer: return static_cast<double>(std::get<int64_t>(fValue));
        case TcsVarType::Boolean: return std::get<bool>(fValue) ? 1 : 0;
        case TcsVarType::Float: return std::get<double>(fValue);
        case TcsVarType::DateTime: return std::get<TDateTime>(fValue).fValue;
        case TcsVarType::String: {
            double v = 0;
            return TryStrToFloat(std::get<std::string>(fValue), v) ? v : 0;
        }
        default: return 0;
    }
}

std::string TcsVariant::AsString() const {
    switch (Type()) {
        case TcsVarType::Integer: return std::to_string(std::get<int64_t>(fValue));
        case TcsVarType::Boolean: return std::get<bool>(fValue) ? "True" : "False";
        case TcsVarType::Float: return FloatToStr(std::get<double>(fValue));
        case TcsVarType::String: return std::get<std::string>(fValue);
        case TcsVarType::DateTime: return DateTimeToStr(std::get<TDateTime>(fValue));
        case TcsVarType::Pointer: {
            char buf[32];
            std::snprintf(buf, sizeof buf, "%p", std::get<const void*>(fValue));
            return buf;
        }
        default: return {};
    }
}

const void* TcsVariant::AsPointer() const {
    return Type() == TcsVarType::Pointer ? std::get<const void*>(fValue) : nullptr;
}

}  // namespace tmi
