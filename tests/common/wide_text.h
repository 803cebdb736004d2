// Text for calls that take wide characters.
#pragma once

#include <string>

#include "platform/platform.h"

using TextString = std::basic_string<WCHAR>;
TextString Wide(const std::string& utf8);
std::string Narrow(const TextString& text);
