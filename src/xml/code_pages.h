// Code pages the text reader decodes into UTF-8, named by their Windows numbers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tmi::xml {

inline constexpr int kCodePageUTF8 = 65001;
inline constexpr int kCodePageUTF16LE = 1200;
inline constexpr int kCodePageUTF16BE = 1201;
inline constexpr int kCodePageWindows1251 = 1251;

// Code page of an encoding name as XML declarations write it ("utf-8", "windows-1251",
// "koi8-r", ...), compared without case; 0 when the name is unknown.
int CodePageOfName(std::string_view aName);

// Name of a code page for messages and declarations ("utf-8", "windows-1251").
std::string CodePageName(int aCodePage);

// Appends the UTF-8 form of aSize bytes in aCodePage to aOut. Bytes that the code page
// does not define become U+FFFD. Returns false for a code page that cannot be decoded here.
bool DecodeToUTF8(int aCodePage, const char* aData, size_t aSize, std::string& aOut);

// Windows-1251 <-> UTF-8, table driven; characters 1251 cannot hold become aMissing.
void AppendWindows1251AsUTF8(const char* aData, size_t aSize, std::string& aOut);
std::string UTF8ToWindows1251(std::string_view aText, char aMissing = '?');

}  // namespace tmi::xml
