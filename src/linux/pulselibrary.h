#pragma once

#include <pulse/glib-mainloop.h>
#include <pulse/pulseaudio.h>

// The functions of the sound server's client library that the program calls. The library is
// loaded when a sound server may be there, not when the program starts: with what it pulls in
// (a sound file library and its codecs) it costs about 1.6 MiB of resident memory, for nothing
// on a computer without sound.
#define VELM_PULSE_FUNCTIONS(F)                                                                    \
    F(pa_context_connect)                                                                          \
    F(pa_context_disconnect)                                                                       \
    F(pa_context_errno)                                                                            \
    F(pa_context_get_server_info)                                                                  \
    F(pa_context_get_sink_info_by_name)                                                            \
    F(pa_context_get_state)                                                                        \
    F(pa_context_new)                                                                              \
    F(pa_context_set_sink_mute_by_name)                                                            \
    F(pa_context_set_sink_volume_by_index)                                                         \
    F(pa_context_set_state_callback)                                                               \
    F(pa_context_set_subscribe_callback)                                                           \
    F(pa_context_subscribe)                                                                        \
    F(pa_context_unref)                                                                            \
    F(pa_cvolume_avg)                                                                              \
    F(pa_cvolume_set)                                                                              \
    F(pa_operation_unref)                                                                          \
    F(pa_strerror)
#define VELM_PULSE_GLIB_FUNCTIONS(F)                                                               \
    F(pa_glib_mainloop_free)                                                                       \
    F(pa_glib_mainloop_get_api)                                                                    \
    F(pa_glib_mainloop_new)

struct PulseLibrary
{
#define VELM_PULSE_POINTER(name) decltype(&::name) name = nullptr;
    VELM_PULSE_FUNCTIONS(VELM_PULSE_POINTER)
    VELM_PULSE_GLIB_FUNCTIONS(VELM_PULSE_POINTER)
#undef VELM_PULSE_POINTER

    // Loads the library on the first call and keeps it for the life of the process; null when
    // it cannot be loaded (said once in the log).
    static const PulseLibrary *get();
};
