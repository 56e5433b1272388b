"""The code in the documentation is code that runs.

Every C++ block of docs/guide.md stands literally in examples/hopf_curve/hopf_curve.cpp, and the
program in README.md compiles, and ends with the line that the README names.

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


def check_readme(project, work, compiler, library):
    readme = read(project, "README.md")
    (code,) = cpp_blocks(readme)
    promised = re.search(r"last line is `([^`]*)`", readme).group(1)
    os.makedirs(work, exist_ok=True)
    source, program = os.path.join(work, "readme.cpp"), os.path.join(work, "readme")
    with open(source, "w", encoding="utf-8") as file:
        file.write(code)
    subprocess.run([compiler, "-std=c++17", source, "-I", os.path.join(project, "src"),
                    "-L", library, "-ltx", "-Wl,-rpath," + library, "-o", program], check=True)
    output = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    last = output.splitlines()[-1]
    assert last == promised, f"the README promises\n{promised}\nbut its program prints\n{last}"


if __name__ == "__main__":
    check_guide(sys.argv[1])
    check_readme(*sys.argv[1:])
