// The trace of property values at level 10.
#pragma once

#include "support/log.h"

// Doesn't test the level; call the inline function below.
void WritePropertyTrace(const WCHAR* function, const WCHAR* pszProperty, const BYTE* value, DWORD cbValue);

// "function property value": a number, a text, or "(NULL)" for a property that is neither. value: cbValue bytes of any
// alignment, NULL if missing. pszProperty may be NULL.
inline void TraceProperty(const WCHAR* function, const WCHAR* pszProperty, const BYTE* value, DWORD cbValue)
{
    if (LogGateOpen(LOG_DETAIL_LEVEL))
        WritePropertyTrace(function, pszProperty, value, cbValue);
}
