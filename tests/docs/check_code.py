"""The code in the documentation is code that runs.

Every C++ block of docs/guide.md stands literally in examples/hopf_curve/hopf_curve.cpp, every one of
docs/diagrams.md in an example, and each program in README.md compiles, and ends with the line that the
README names.

    check_code.py <project> <work directory> <compiler> <directory of the shared library>
"""
import os
import re
import subprocess
import sys


def read(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return file.read()


def cpp_blocks(text):
    blocks = re.findall(r"^```cpp\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    assert blocks, "no C++ blocks"
    return blocks


def check_guide(project):
    program = read(project, "examples", "hopf_curve", "hopf_curve.cpp")
    for block in cpp_blocks(read(project, "docs", "guide.md")):
        assert block in program, "not in hopf_curve.cpp:\n" + block


def check_diagrams(project):
    examples = os.path.join(project, "examples")
    programs = [read(examples, name, name + ".cpp") for name in os.listdir(examples)
                if os.path.exists(os.path.join(examples, name, name + ".cpp"))]
    for block in cpp_blocks(read(project, "docs", "diagrams.md")):
        assert any(block in program for program in programs), "in no example:\n" + block


def check_readme(project, work, compiler, library):
    readme = read(project, "README.md")
    codes = cpp_blocks(readme)
    promises = re.findall(r"last line is `([^`]*)`", readme)
    assert len(codes) == len(promises) == 2
    os.makedirs(work, exist_ok=True)
    for number, (code, promised) in enumerate(zip(codes, promises)):
        check_program(project, os.path.join(work, f"readme{number}"), code, promised, compiler, library)


def check_program(project, program, code, promised, compiler, library):
    standard = "-std=c++20" if "tx.hpp" in code else "-std=c++17"
    with open(program + ".cpp", "w", encoding="utf-8") as file:
        file.write(code)
    subprocess.run([compiler, standard, program + ".cpp", "-I", os.path.join(project, "src"),
                    "-L", library, "-ltx", "-Wl,-rpath," + library, "-o", program], check=True)
    output = subprocess.run([program], check=True, capture_output=True, text=True,
                            cwd=os.path.dirname(program)).stdout
    last = output.splitlines()[-1]
    assert last == promised, f"the README promises\n{promised}\nbut its program prints\n{last}"


if __name__ == "__main__":
    check_guide(sys.argv[1])
    check_diagrams(sys.argv[1])
    check_readme(*sys.argv[1:])
