#include "provider/answers.h"

#include <string.h>

SECURITY_STATUS AnswerBytes(const void* value, DWORD cbValue, const HostOutput& output)
{
    *output.cbResult = cbValue;
    if (!output.bytes)
        return ERROR_SUCCESS;
    if (output.size < cbValue)
        return NTE_BUFFER_TOO_SMALL;
    if (!value)
        return NTE_NOT_SUPPORTED;
    if (cbValue)
        memcpy(output.bytes, value, cbValue);
    return ERROR_SUCCESS;
}
