/* As much of the framework as the agent uses; a Mac has the whole of it. */
#ifndef MSP_STUB_IOKIT_LIB_H
#define MSP_STUB_IOKIT_LIB_H

#include <CoreFoundation/CoreFoundation.h>
#include <mach/error.h>
#include <mach/mach.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef kern_return_t IOReturn;
typedef mach_port_t io_object_t;
typedef io_object_t io_connect_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_service_t;

#define IO_OBJECT_NULL ((io_object_t)0)

CFMutableDictionaryRef IOServiceMatching(const char* className);
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching,
                                           io_iterator_t* existing);
io_object_t IOIteratorNext(io_iterator_t iterator);
kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, uint32_t type,
                            io_connect_t* connect);
kern_return_t IOServiceClose(io_connect_t connect);
kern_return_t IOObjectRelease(io_object_t object);
kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t selector, const void* input,
                                        size_t inputSize, void* output, size_t* outputSize);

#ifdef __cplusplus
}
#endif
#endif
