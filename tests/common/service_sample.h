// Recorded answers of the live service.
#pragma once

#include <string>

std::string ReadServiceSample(const std::string& name);  // a file of tests/data/service, without ".json"
