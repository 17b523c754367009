"""The C interface's status values, named as fexo.h names them (without the FEXO_ prefix).

This is the one place the package writes them; a test checks it against the library's
fexo_status_name() and fexo.h.
"""

import enum


class Status(enum.IntEnum):
    OK = 0
    ERROR_INVALID_ARGUMENT = 1
    ERROR_NOT_FOUND = 2
    ERROR_DECODING = 3
    ERROR_ENCODING = 4
    ERROR_TRANSPORT = 5
    ERROR_CONFIGURATION = 6
    ERROR_OUT_OF_MEMORY = 7
    ERROR_INTERNAL = 8
    ERROR_UNAVAILABLE = 9
    ERROR_STORE = 10

Status.__module__ = "fexo"  # shown, pickled and named in tracebacks by its public name
