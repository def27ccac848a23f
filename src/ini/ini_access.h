// The INI access layer: the six procedures through which KivINIFileHandler
// reaches the contents of an INI file. Each makes one request of the
// profile store of `services` (the object's context) and hands back raw text;
// none validates or converts values.
//
// Conversions at the store boundary: section names, key names, values and
// defaults become text in the context's code page (ToCodePage with
// services.code_page(), which its profile store shares): under 1252 characters without a byte become '?', under
// 65001 a lone surrogate becomes U+FFFD), the file path becomes a UTF-8
// native path under both code pages. Text read back is converted with
// FromCodePage (under 65001 invalid UTF-8 reads as U+FFFD).
//
// Every read makes one request with a fresh buffer of 1,024 characters and
// passes 1,024 as its size, and what the store cut to fit stays cut:
//  - a value longer than 1,023 characters comes back as its first 1,023
//    (the file keeps the whole value);
//  - a name list whose text with its final NUL does not fit (1,023
//    characters or more before that NUL) comes back as the store cut it: the
//    names that fit, the last one shortened, 1,022 characters in all, with
//    no NUL at the end. DecodeNameList then drops one more character of
//    that last name.
// Characters here are the bytes of the code page. Under 65001 a cut never
// splits a character: a value comes back as the longest run of whole
// characters within 1,023 bytes (1,020 to 1,023 bytes), a cut list's last
// name ends with the last whole character before byte 1,022, and
// DecodeNameList drops one more whole character (1 to 4 bytes). So no
// cut turns into U+FFFD.
// Applications ported to this library see these cuts in GetValue,
// GetSectionNames, GetFieldNames and in every import from an INI file, all
// of which read through here. Callers that need whole answers can ask the
// profile store directly with a larger buffer.
//
// Nothing the store reports is treated as an error: a missing file,
// section or key yields the default (the empty list for listings), and a
// write that the store refuses changes nothing. The store's ProfileError
// code of the call is returned through `store_error` for callers that want
// it.
//
// The store takes C strings, so a NUL character inside a section name, key
// name or value would cut it short and address another key. Such requests
// are refused here the way the store refuses line breaks (error 87): a
// read finds nothing (the default, or the empty list), a write changes
// nothing. A default is only cut at its first NUL.
//
// Each procedure runs under the standard handler with the label
// "KivINIFileHandler.<procedure name>".
#ifndef TARVO2_INI_INI_ACCESS_H_
#define TARVO2_INI_INI_ACCESS_H_

#include <cstdint>
#include <vector>

#include "tarvo2/object.h"
#include "tarvo2/services.h"

namespace tarvo2::ini {

// The name list of all sections of `path`: each name followed by a NUL
// ("A", NUL, "BC", NUL); the empty string when there are none.
String INIGetSections(const Services& services, const String& path, uint32_t* store_error = nullptr);

// The name list of the keys of `section` (same form).
String INIGetFields(const Services& services, const String& path, const String& section,
                    uint32_t* store_error = nullptr);

// The value of `key` in `section`, or `def` (without its trailing spaces,
// as the store gives it) when the key, the section or the file is missing.
String INIGetValue(const Services& services, const String& path, const String& section, const String& key,
                   const String& def, uint32_t* store_error = nullptr);

// Creates or replaces the key, creating the section and the file as needed.
void INISetValue(const Services& services, const String& path, const String& section, const String& key,
                 const String& value, uint32_t* store_error = nullptr);

// Removes the key; the section's header stays.
void INIDeleteValue(const Services& services, const String& path, const String& section, const String& key,
                    uint32_t* store_error = nullptr);

// Removes the section's header and its keys.
void INIDeleteSection(const Services& services, const String& path, const String& section,
                      uint32_t* store_error = nullptr);

// Decodes a name list into its names, in order: none when the list is
// empty or only spaces; otherwise the text without its last character (a
// whole character: both units of a surrogate pair), split at every NUL.
std::vector<String> DecodeNameList(const String& list);

}  // namespace tarvo2::ini

#endif  // TARVO2_INI_INI_ACCESS_H_
