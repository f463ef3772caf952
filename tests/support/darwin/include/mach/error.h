#pragma once

using mach_error_t = int;
