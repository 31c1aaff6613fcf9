/*
 * What stands between a module, one small file for each effect, and the library that all modules share. The same calls
 * as frei0r's, with the module's name or an instance in front; a module forwards them. Threads: as frei0r.h says, and
 * an instance that two threads use at once comes to no harm. Nothing is thrown through here.
 */
#ifndef HOSTS_FREI0R_MODULE_H
#define HOSTS_FREI0R_MODULE_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

struct f0r_plugin_info;
struct f0r_param_info;
struct VelloranInstance;

/* Both leave the record without a word where there is no such module or param. */
void velloran_frei0r_info(const char* slug, struct f0r_plugin_info* info);
void velloran_frei0r_param_info(const char* slug, struct f0r_param_info* info, int param);

/* Null after a message on standard error. Of any size from 1x1. */
struct VelloranInstance* velloran_frei0r_open(const char* slug, unsigned int width, unsigned int height);
void velloran_frei0r_close(struct VelloranInstance* instance);

void velloran_frei0r_set(struct VelloranInstance* instance, const void* value, int param);
void velloran_frei0r_get(struct VelloranInstance* instance, void* value, int param);

/* caller: an address in the code that asks. A frame that cannot be made is striped, with a message on standard error.
 */
void velloran_frei0r_update(struct VelloranInstance* instance, double time, const uint32_t* const* inputs,
                            uint32_t* output, const void* caller);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
