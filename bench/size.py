"""What the tools tell of shared objects, programs and packages: sizes, what loading takes, code, versions."""

import os
import platform
import re
import subprocess
import tempfile


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def shared_object(path, compilers_own=1):
    """Size without symbols, relocations, libraries needed, and constructors that run at the start, without the one
    that the compiler gives to every object that has its start-up files."""
    with tempfile.TemporaryDirectory(prefix="kel-bench-") as folder:
        stripped = os.path.join(folder, "stripped")
        output("strip", "-o", stripped, path)
        size = os.path.getsize(stripped)
    entries = re.search(r" \.init_array +INIT_ARRAY +\w+ +\w+ +(\w+) ", output("readelf", "-SW", path))
    return {
        "bytes": size,
        "relocations": len(re.findall(r"^[0-9a-f]+ +[0-9a-f]+ R_", output("readelf", "-rW", path), re.MULTILINE)),
        "needed": sorted(re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-dW", path))),
        "constructors": int(entries[1], 16) // 8 - compilers_own if entries else 0,
    }


def together(objects):
    """Shared objects as one: {name: figures} summed up, needing what is none of them."""
    needed = {name for figures in objects.values() for name in figures["needed"]}
    sums = {key: sum(figures[key] for figures in objects.values()) for key in ("bytes", "relocations", "constructors")}
    return {**sums, "needed": sorted(needed - set(objects))}


def loaded_objects(program):
    """{name: path} of the shared objects that a program names, the compiler's and the C library's own apart."""
    named = re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-dW", program))
    paths = dict(re.findall(r"^\s*(\S+) => (/\S+)", output("ldd", program), re.MULTILINE))
    return {name: paths[name] for name in named if not re.match(r"lib(c|m|gcc_s|stdc\+\+)\.so", name)}


def code_and_data(program):
    text, data = output("size", program).splitlines()[1].split()[:2]
    return int(text) + int(data)


def of_libraries(build):
    """{peer: figures}, and what one that is headers alone adds to the program by hand."""
    sizes = {"module_shared": {**shared_object(build.library, compilers_own=0), "objects": ["libkel_socket.so.1"]}}
    for peer in build.peers("library"):
        program = build.programs[peer]
        objects = {name: shared_object(path) for name, path in loaded_objects(program).items()}
        if objects:
            sizes[peer] = {**together(objects), "objects": list(objects)}
        else:
            sizes[peer] = {"headers": code_and_data(program) - code_and_data(build.programs["hand"])}
    return sizes


def versions(packages):
    lines = output("dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages).splitlines()
    return {"Linux": platform.release().split("-")[0], **dict(line.split() for line in lines)}


def disassembly(path, function):
    """A function's instructions with their offsets, and names where the layout's addresses would be."""
    lines = []
    for line in output("objdump", "-d", "--no-show-raw-insn", f"--disassemble={function}", path).splitlines():
        if match := re.match(r" *([0-9a-f]+):\t(.*?) *$", line):
            address = int(match[1], 16)
            first = address if not lines else first
            text = re.sub(r"-?0x[0-9a-f]+\(%rip\)(.*?) *# [0-9a-f]+ <(.*)>", r"\2(%rip)\1", match[2])
            text = re.sub(r"\b[0-9a-f]+ <(.*)>", r"\1", text).replace(f"{function}+0x", "+")
            text = re.sub(r"CSWTCH\.\d+", "table", text)  # the number is the compiler's, and another in every version
            lines.append(f"{address - first:4x}  {text}")
    return lines
