#!/usr/bin/env python3
"""A folder of a file server as Samba's client library lists it: a line "name create-time" for each entry, in seconds
from 1970.

usage: list_folder.py URL
"""
import ctypes
import sys

LIBRARY = ctypes.CDLL("libsmbclient.so.0")


class Time(ctypes.Structure):
    _fields_ = [("seconds", ctypes.c_long), ("nanoseconds", ctypes.c_long)]


class Entry(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint64), ("attributes", ctypes.c_uint16), ("user", ctypes.c_uint32),
                ("group", ctypes.c_uint32), ("created", Time), ("modified", Time), ("accessed", Time), ("changed", Time),
                ("name", ctypes.c_char_p), ("short_name", ctypes.c_char_p)]


LIBRARY.smbc_readdirplus.restype = ctypes.POINTER(Entry)
ASK = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p, *[ctypes.c_void_p, ctypes.c_int] * 3)
as_guest = ASK(lambda *_: None)
if LIBRARY.smbc_init(as_guest, 0) != 0:
    sys.exit("smbc_init")
folder = LIBRARY.smbc_opendir(sys.argv[1].encode())
if folder < 0:
    sys.exit("smbc_opendir")
while entry := LIBRARY.smbc_readdirplus(folder):
    print(entry.contents.name.decode(), entry.contents.created.seconds)
