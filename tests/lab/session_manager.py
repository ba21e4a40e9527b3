"""A session manager of X11 (XSMP, over libSM), such as desktops have to start programs again that ran at the end of the last session.
It obeys one line at a time:

    address     answers with what belongs into SESSION_MANAGER
    clients     answers with a JSON list: the properties that each client has set so far, by their names, as text
"""

import ctypes
import json
import select
import sys
from ctypes import CFUNCTYPE, POINTER, Structure, byref, c_char_p, c_int, c_ulong, c_void_p, cast

ice, sm = ctypes.CDLL("libICE.so.6"), ctypes.CDLL("libSM.so.6")
ACCEPTED, PENDING = 1, 0
SAVE_LOCAL, NO_INTERACTION = 1, 0
CALLBACKS = ("register", "interact_request", "interact_done", "save_request", "phase_2_request", "save_done", "close", "set_properties",
             "delete_properties", "get_properties")


class Value(Structure):
    _fields_ = (("length", c_int), ("data", c_void_p))


class Property(Structure):
    _fields_ = (("name", c_char_p), ("type", c_char_p), ("count", c_int), ("values", POINTER(Value)))


class Callback(Structure):
    _fields_ = (("function", c_void_p), ("data", c_void_p))


class Callbacks(Structure):
    _fields_ = tuple((name, Callback) for name in CALLBACKS)


for function, result in ((ice.IceComposeNetworkIdList, c_char_p), (ice.IceAcceptConnection, c_void_p),
                         (sm.SmsGenerateClientID, c_void_p)):
    function.restype = result

clients = {}


@CFUNCTYPE(c_int, c_void_p, c_void_p, c_char_p)
def register(connection, _data, previous):
    identity = c_void_p(sm.SmsGenerateClientID(c_void_p(connection)))
    sm.SmsRegisterClientReply(c_void_p(connection), identity)
    if not previous:
        sm.SmsSaveYourself(c_void_p(connection), SAVE_LOCAL, 0, NO_INTERACTION, 0)
    return 1


@CFUNCTYPE(None, c_void_p, c_void_p, c_int)
def save_done(connection, _data, _success):
    sm.SmsSaveComplete(c_void_p(connection))


@CFUNCTYPE(None, c_void_p, c_void_p, c_int, c_void_p)
def close(connection, *_):
    sm.SmsCleanUp(c_void_p(connection))


@CFUNCTYPE(None, c_void_p, c_void_p, c_int, POINTER(POINTER(Property)))
def set_properties(connection, _data, count, properties):
    for pointer in properties[:count]:
        values = (ctypes.string_at(value.data, value.length) for value in pointer.contents.values[:pointer.contents.count])
        # a hint is one byte, everything else is text
        clients[connection][pointer.contents.name.decode()] = [
            str(value[0]) if pointer.contents.type == b"CARD8" else value.decode() for value in values]


@CFUNCTYPE(None, c_void_p, c_void_p)
def ignored(*_):
    pass


@CFUNCTYPE(c_int, c_void_p, c_void_p, POINTER(c_ulong), POINTER(Callbacks), c_void_p)
def new_client(connection, _data, mask, callbacks, _reason):
    clients[connection] = {}
    mask[0] = (1 << len(CALLBACKS)) - 1
    for name in CALLBACKS:
        getattr(callbacks.contents, name).function = cast(globals().get(name, ignored), c_void_p).value
    return 1


@CFUNCTYPE(None, c_void_p)
def on_lost_connection(_connection):
    """Instead of the library's own way, which is to end the process."""


@CFUNCTYPE(c_int, c_char_p)
def admit_everybody(_host):
    return 1


def listen():
    ice.IceSetIOErrorHandler(on_lost_connection)
    count, listeners, error = c_int(), POINTER(c_void_p)(), ctypes.create_string_buffer(256)
    if not sm.SmsInitialize(b"lab", b"1", new_client, None, admit_everybody, 256, error) or \
            not ice.IceListenForConnections(byref(count), byref(listeners), 256, error):
        sys.exit(error.value.decode())
    for listener in listeners[:count.value]:
        ice.IceSetHostBasedAuthProc(c_void_p(listener), admit_everybody)
    address = ice.IceComposeNetworkIdList(count, listeners).decode()
    return address, {ice.IceGetListenConnectionNumber(c_void_p(listener)): listener for listener in listeners[:count.value]}


def main():
    address, listeners = listen()
    connections = {}
    print("ready", flush=True)
    while True:
        readable, _, _ = select.select([sys.stdin, *listeners, *connections], [], [])
        for ready in readable:
            if ready is sys.stdin:
                order = sys.stdin.readline().strip()
                if not order:
                    return
                print(address if order == "address" else json.dumps(list(clients.values())), flush=True)
            elif ready in listeners:
                status = c_int()
                if connection := ice.IceAcceptConnection(c_void_p(listeners[ready]), byref(status)):
                    connections[ice.IceConnectionNumber(c_void_p(connection))] = connection
            elif ice.IceProcessMessages(c_void_p(connections[ready]), None, None) != 0:
                del connections[ready]


if __name__ == "__main__":
    main()
