// What the live service answered, as it was written down.
#pragma once

#include <string>

std::string ReadServiceSample(const std::string& name);  // a file of tests/data/service, without ".json"
