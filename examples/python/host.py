#!/usr/bin/env python3
"""A host in Python, without a build step: reports an event and waits until the service has accepted it.

Usage: host.py LIBRARY SERVICE-URL DATA-FOLDER [SYSTEM-VERSION]
"""

import sys
from ctypes import (CDLL, CFUNCTYPE, POINTER, Structure, Union, byref, c_bool, c_char_p, c_double, c_int32, c_int64,
                    c_size_t, c_uint64, c_void_p, sizeof)


class Options(Structure):
    _fields_ = [("size", c_size_t), ("data_directory", c_char_p), ("service_url", c_char_p),
                ("attribution_url", c_char_p), ("ca_file", c_char_p), ("proxy", c_char_p),
                ("max_answer_bytes", c_uint64), ("system_version", c_char_p)]


class Value(Union):
    _fields_ = [("boolean", c_bool), ("integer", c_int64), ("number", c_double), ("text", c_char_p)]


class Parameter(Structure):
    _fields_ = [("name", c_char_p), ("type", c_int32), ("value", Value)]


UPDATE = CFUNCTYPE(None, c_void_p, c_int32, c_int32, c_bool, c_void_p)


class AdNetwork(Structure):
    _fields_ = [("size", c_size_t), ("context", c_void_p), ("release", c_void_p), ("register_app", c_void_p),
                ("update_conversion_value", c_void_p), ("update_postback", c_void_p),
                ("update_coarse_postback", UPDATE)]


LOG_ERROR, VALUE_TEXT = 1, 3


def main(library, service, data, system_version="17.4"):
    quillmar = CDLL(library)
    for function in (quillmar.quillmar_platform_release, quillmar.quillmar_release):
        function.argtypes, function.restype = [c_void_p], None
    quillmar.quillmar_ad_network_completion_call.argtypes = [c_void_p, c_char_p]
    quillmar.quillmar_ad_network_completion_call.restype = None
    quillmar.quillmar_platform_set_ad_network.argtypes = [c_void_p, POINTER(AdNetwork)]
    quillmar.quillmar_create.argtypes = [c_void_p, POINTER(c_void_p)]
    quillmar.quillmar_set_log_level.argtypes = [c_void_p, c_int32]
    quillmar.quillmar_configure.argtypes = [c_void_p, c_char_p]
    quillmar.quillmar_send_event.argtypes = [c_void_p, c_char_p, POINTER(Parameter), c_size_t]
    for function in (quillmar.quillmar_wait_until_delivered, quillmar.quillmar_drain):
        function.argtypes, function.restype = [c_void_p, c_int64], c_bool

    @UPDATE
    def update(_context, fine, coarse, lock, completion):  # the ad network, which a phone would have
        print(f"fine value {fine}, coarse value {('high', 'medium', 'low')[coarse]}{', locked' if lock else ''}")
        quillmar.quillmar_ad_network_completion_call(completion, None)

    options = Options(size=sizeof(Options), service_url=service.encode(), data_directory=data.encode(),
                      system_version=system_version.encode())
    network = AdNetwork(size=sizeof(AdNetwork), update_coarse_postback=update)
    platform, events = c_void_p(), c_void_p()
    for status in (lambda: quillmar.quillmar_platform_create(byref(options), byref(platform)),
                   lambda: quillmar.quillmar_platform_set_ad_network(platform, byref(network)),
                   lambda: quillmar.quillmar_create(platform, byref(events))):
        if status() != 0:
            return 1
    quillmar.quillmar_set_log_level(events, LOG_ERROR)
    quillmar.quillmar_configure(events, b"your-verification-key")
    revenue = Parameter(b"revenue", VALUE_TEXT, Value(text=b"9.99"))
    quillmar.quillmar_send_event(events, b"purchase", byref(revenue), 1)
    delivered = quillmar.quillmar_wait_until_delivered(events, 10000)
    quillmar.quillmar_drain(events, 10000)
    quillmar.quillmar_release(events)
    quillmar.quillmar_platform_release(platform)
    return 0 if delivered else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) in (4, 5) else __doc__)
