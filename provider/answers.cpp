#include "provider/answers.h"

#include <string.h>

SECURITY_STATUS AnswerBytes(const void* value, DWORD cbValue, BYTE* pbOutput, DWORD cbOutput, DWORD* pcbResult)
{
    *pcbResult = cbValue;
    if (!pbOutput)
        return ERROR_SUCCESS;
    if (cbOutput < cbValue)
        return NTE_BUFFER_TOO_SMALL;
    if (cbValue)
        memcpy(pbOutput, value, cbValue);
    return ERROR_SUCCESS;
}
