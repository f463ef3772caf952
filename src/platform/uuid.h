#pragma once

#include <string>

namespace msp {

/// A fresh random UUID in its canonical upper-case form, 36 characters. Safe on any thread.
std::string makeUuid();

}  // namespace msp
