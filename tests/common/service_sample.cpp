#include "tests/common/service_sample.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

std::string ReadServiceSample(const std::string& name)
{
    std::ifstream file(KELVARO_SERVICE_SAMPLES "/" + name + ".json", std::ios::binary);
    EXPECT_TRUE(file) << name;
    return std::string(std::istreambuf_iterator<char>(file), {});
}
