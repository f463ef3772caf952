#pragma once

using kern_return_t = int;
using mach_port_t = unsigned;
using task_port_t = mach_port_t;

#define KERN_SUCCESS 0
#define MACH_PORT_NULL 0U

extern "C" mach_port_t mach_task_self();
