#pragma once

#include "tests/common/test_root.h"

// While one of these lives the machine's settings can be read, but not written.
class ReadOnlySettings {
  public:
    explicit ReadOnlySettings(const TestRoot& root);
    ~ReadOnlySettings();
    ReadOnlySettings(const ReadOnlySettings&) = delete;
    ReadOnlySettings& operator=(const ReadOnlySettings&) = delete;

  private:
    std::string obstacle_;
};
