#!/usr/bin/python3
"""A Modbus device for the tests, by an implementation that isn't ours.

usage: modbus_server.py [PORT]

Listens on 127.0.0.1, on a free port without PORT, and prints `listening PORT`. Unit 1 has the addresses that were set and
refuses all others. One command a line on standard input, one line of answer on standard output:

    set TABLE ADDRESS WORD...           ok; makes addresses that aren't there
    get TABLE ADDRESS COUNT             the words
    put TABLE ADDRESS FORMAT ORDER V    ok; V in that format, the words in that order
    take TABLE ADDRESS FORMAT ORDER     the value read back that way
    remove TABLE ADDRESS                ok; the device has that address no more
    requests                            what was asked since the last `requests`: FUNCTION:ADDRESS:COUNT ...

TABLE is coil, discrete, input or holding. It ends when standard input does.
"""

import asyncio
import sys
import threading
import types

# The server's package wants the modules of the serial line, which a connection over TCP has no use for.
for name in ("serial", "serial_asyncio"):
    try:
        __import__(name)
    except ImportError:
        sys.modules[name] = types.ModuleType(name)
        sys.modules[name].create_serial_connection = None

from pymodbus.constants import Endian  # noqa: E402
from pymodbus.datastore import ModbusServerContext, ModbusSlaveContext, ModbusSparseDataBlock  # noqa: E402
from pymodbus.payload import BinaryPayloadBuilder, BinaryPayloadDecoder  # noqa: E402
from pymodbus.server.async_io import ModbusTcpServer  # noqa: E402

STORES = {"coil": "c", "discrete": "d", "input": "i", "holding": "h"}
ORDERS = {  # order of the bytes in a word, of the words in a number
    "abcd": (Endian.Big, Endian.Big),
    "cdab": (Endian.Big, Endian.Little),
    "badc": (Endian.Little, Endian.Big),
    "dcba": (Endian.Little, Endian.Little),
}
FORMATS = {  # registers, what writes and what reads it
    "int16": (1, "add_16bit_int", "decode_16bit_int"),
    "uint16": (1, "add_16bit_uint", "decode_16bit_uint"),
    "int32": (2, "add_32bit_int", "decode_32bit_int"),
    "uint32": (2, "add_32bit_uint", "decode_32bit_uint"),
    "float32": (2, "add_32bit_float", "decode_32bit_float"),
    "float64": (4, "add_64bit_float", "decode_64bit_float"),
}


class Device(ModbusSlaveContext):
    """Remembers what it is asked; each request is validated exactly once."""

    def __init__(self):
        super().__init__(
            zero_mode=True,
            **{key: ModbusSparseDataBlock({}) for key in ("co", "di", "ir", "hr")},
        )
        self.requests = []

    def validate(self, fc_as_hex, address, count=1):
        self.requests.append(f"{fc_as_hex}:{address}:{count}")
        return super().validate(fc_as_hex, address, count)


def number(text):
    return float(text) if any(sign in text for sign in ".en") else int(text)


def answer(device, words):
    command, arguments = words[0], words[1:]
    if command == "requests":
        seen, device.requests = device.requests, []
        return " ".join(seen)
    values = device.store[STORES[arguments[0]]].values
    address = int(arguments[1])
    if command == "set":
        values.update((address + i, int(word)) for i, word in enumerate(arguments[2:]))
        return "ok"
    if command == "get":
        return " ".join(str(int(values[address + i])) for i in range(int(arguments[2])))
    if command == "remove":
        del values[address]
        return "ok"
    count, writer, reader = FORMATS[arguments[2]]
    byte_order, word_order = ORDERS[arguments[3]]
    if command == "put":
        builder = BinaryPayloadBuilder(byteorder=byte_order, wordorder=word_order)
        getattr(builder, writer)(number(arguments[4]))
        values.update((address + i, word) for i, word in enumerate(builder.to_registers()))
        return "ok"
    if command == "take":
        registers = [values[address + i] for i in range(count)]
        decoder = BinaryPayloadDecoder.fromRegisters(registers, byteorder=byte_order, wordorder=word_order)
        return repr(getattr(decoder, reader)())
    raise ValueError(command)


def obey(device, loop, stop):
    for line in sys.stdin:
        done = asyncio.run_coroutine_threadsafe(in_loop(device, line.split()), loop)
        print(done.result(), flush=True)
    loop.call_soon_threadsafe(stop.set)


async def in_loop(device, words):
    try:
        return answer(device, words)
    except Exception as fault:  # told to the test rather than lost on standard error
        return f"error {fault!r}"


async def main():
    device = Device()
    port = int(sys.argv[1]) if len(sys.argv) > 1 else 0
    server = ModbusTcpServer(
        ModbusServerContext(slaves={1: device}, single=False),
        address=("127.0.0.1", port),
        allow_reuse_address=True,
    )
    serving = asyncio.ensure_future(server.serve_forever())
    await server.serving
    print("listening", server.server.sockets[0].getsockname()[1], flush=True)
    stop = asyncio.Event()
    threading.Thread(target=obey, args=(device, asyncio.get_running_loop(), stop), daemon=True).start()
    await stop.wait()
    serving.cancel()


if __name__ == "__main__":
    asyncio.run(main())
