#!/usr/bin/env python3
"""Tests cmake/macos/prove: spoils copies of the agent for a Mac, each in one way, and expects the proof that fails.

    prove_test.py [FILE, instead of dist/msp-agent]

Status 77: there is no such file, or no llvm-nm-14.
"""

import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

PROJECT = pathlib.Path(__file__).resolve().parents[2]
PROVE = PROJECT / "cmake/macos/prove"
# Entries of the universal file's header, in this order.
X86_64, ARM64 = 8, 28
LC_CODE_SIGNATURE, LC_DYLIB_CODE_SIGN_DRS, LC_BUILD_VERSION = 0x1D, 0x2B, 0x32
MH_PIE = 0x200000


class Agent:
    """The bytes of a universal file, and where things are in it."""

    def __init__(self, data):
        self.data = bytearray(data)

    def slice_at(self, architecture):
        return struct.unpack_from(">I", self.data, architecture + 8)[0]

    def command_at(self, architecture, wanted):
        start = self.slice_at(architecture)
        at = start + 32
        for _ in range(struct.unpack_from("<I", self.data, start + 16)[0]):
            kind, size = struct.unpack_from("<II", self.data, at)
            if kind == wanted:
                return at
            at += size
        sys.exit(f"prove_test: no load command {wanted:#x}")

    def replace(self, old, new):
        at = self.data.index(old, self.slice_at(X86_64), self.slice_at(ARM64))
        self.data[at : at + len(old)] = new


def needs_macos_12(agent):
    struct.pack_into("<I", agent.data, agent.command_at(X86_64, LC_BUILD_VERSION) + 12, 12 << 16)


def is_for_another_platform(agent):
    struct.pack_into("<I", agent.data, agent.command_at(ARM64, LC_BUILD_VERSION) + 8, 2)


def has_no_pie_flag(agent):
    at = agent.slice_at(X86_64) + 24
    struct.pack_into("<I", agent.data, at, struct.unpack_from("<I", agent.data, at)[0] & ~MH_PIE)


def takes_another_library(agent):
    agent.replace(b"/usr/lib/libcurl.4.dylib\0", b"/usr/lib/libcurl.5.dylib\0")


def takes_a_newer_symbol(agent):
    agent.replace(b"\0_curl_easy_init\0", b"\0_curl_easy_anew\0")


def has_another_byte_in_a_page(agent):
    agent.data[agent.slice_at(ARM64) + 0x4321] ^= 1


def has_no_signature(agent):
    struct.pack_into("<I", agent.data, agent.command_at(ARM64, LC_CODE_SIGNATURE), LC_DYLIB_CODE_SIGN_DRS)


def has_one_slice(agent):
    struct.pack_into(">I", agent.data, 4, 1)


def is_no_universal_file(agent):
    del agent.data[: agent.slice_at(X86_64)]


def is_too_large(agent):
    size = 2 * 1024 * 1024 + 1024
    struct.pack_into(">I", agent.data, ARM64 + 12, size)
    agent.data.extend(bytes(agent.slice_at(ARM64) + size - len(agent.data)))


CASES = [
    (needs_macos_12, "x86_64: runs from macOS 11.0 on"),
    (is_for_another_platform, "arm64: runs from macOS 11.0 on"),
    (has_no_pie_flag, "x86_64: can be loaded anywhere (PIE)"),
    (takes_another_library, "x86_64: takes only the system's libraries, by their real names"),
    (
        takes_a_newer_symbol,
        "x86_64: all its {symbols} symbols are known to be in macOS 11"
        " (not _curl_easy_anew: see symbols-of-macos-11.txt)",
    ),
    (has_another_byte_in_a_page, "arm64: signed ad hoc, and every page's hash is right"),
    (has_no_signature, "arm64: signed ad hoc, and every page's hash is right"),
    (has_one_slice, "it holds arm64 and x86_64, and nothing else"),
    (is_no_universal_file, "it is a universal file"),
    (is_too_large, "arm64: 2049 KiB, at most 2048"),
]


def prove(file, again):
    finished = subprocess.run([PROVE, file, again], capture_output=True, text=True)
    return finished.returncode, finished.stdout, finished.stderr


def failures(original, folder):
    """A line for each expectation that does not hold."""
    file, again = folder / "msp-agent", folder / "again"
    file.write_bytes(original)
    again.write_bytes(original)
    status, printed, complaint = prove(file, again)
    if status != 0:
        yield f"the agent as it was built: {complaint}"
        return
    symbols = printed.split("x86_64: all its ")[1].split()[0]

    for spoil, expected in CASES:
        agent = Agent(original)
        spoil(agent)
        file.write_bytes(agent.data)
        again.write_bytes(agent.data)
        status, _, complaint = prove(file, again)
        if (status, complaint) != (1, f"prove: NOT TRUE: {expected.format(symbols=symbols)}\n"):
            yield f"{spoil.__name__}: status {status}: {complaint}"

    file.write_bytes(original)
    again.write_bytes(original[:-1] + bytes([original[-1] ^ 1]))
    status, _, complaint = prove(file, again)
    if (status, complaint) != (1, "prove: NOT TRUE: a build from another folder is the same, byte for byte\n"):
        yield f"another second build: status {status}: {complaint}"


def main(built):
    if not built.exists() or not shutil.which("llvm-nm-14"):
        print("prove_test: skipped: there is no", built if not built.exists() else "llvm-nm-14")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        found = list(failures(built.read_bytes(), pathlib.Path(folder)))
    if found:
        sys.exit("prove_test: " + "\n".join(found))


main(pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else PROJECT / "dist/msp-agent")
