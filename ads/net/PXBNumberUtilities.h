// Short decimal text of a float for request parameters: "%f" without trailing zeros.
#pragma once

#include <QString>

class PXBNumberUtilities {
  public:
    PXBNumberUtilities() = delete;

    // 2.0 -> "2", 1.5 -> "1.5"; digits past the sixth decimal place are lost.
    static QString stringWithFloat(float value);
};
