#!/usr/bin/env python3
"""Checks that the man pages, the completion of bash and docs/kvhost.md tell what the programs do.

Every long option of "kvhost COMMAND --help" is in the section of that command in kvhost.1 and in the completion, and
the other way round; kvsink.1 likewise. Every field that the readers of the configuration know is in kvhost.toml.5, in
the section of its table, and in the tables of docs/kvhost.md, and the other way round. The completion answers as it
should, and groff has nothing to complain about in the man pages.

Usage: check_manual.py ROOT KVHOST KVSINK   checks the tree at ROOT with these programs
       check_manual.py --self-check         checks that what is missing is found
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

LONG_OPTION = re.compile(r"--[a-z][a-z-]*")
READERS = ("ConfigReader.cpp", "RunFields.cpp", "RetryFields.cpp", "CarrierFields.cpp")
TABLE_OF_READER = {
    "ReadConfig": "Top level",
    "ReadDriverSettings": "[driver]",
    "ReadLogSettings": "[log]",
    "ReadRunFields": "[run]",
    "ReadLimitFields": "[limits]",
    "ReadDeliveryLogFields": "[delivery_log]",
    "ReadHttpFields": "[http]",
    "ReadRetryFields": "[retry]",
    "ReadCarrierFields": "[carrier.NAME] or [[carrier]]",
}


def output_of(command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=30, **options).stdout


def options_in_help(text):
    """The long options that are told at the beginning of a line of a help text."""
    found = set()
    for line in text.splitlines():
        told = re.match(r"\s+((?:-\w,)?--[a-z][a-z-]*(?:,\S+)?)", line)
        found.update(LONG_OPTION.findall(told.group(1)) if told else [])
    return found


def commands_in_help(text):
    """The commands that a help text tells, below any of its titles but that of the options and arguments."""
    commands, takes = [], False
    for line in text.splitlines():
        if re.match(r"\S.*:$", line):
            takes = line not in ("Options:", "Positionals:")
        elif takes and (found := re.match(r"  ([a-z]+)(?:\s|$)", line)):
            commands.append(found.group(1))
    return commands


def help_by_command(program, command=()):
    """The options of every command by its name, such as "config check"; "" is the program itself."""
    text = output_of([program, *command, "--help"])
    found = {" ".join(command): options_in_help(text)}
    for name in commands_in_help(text):
        found.update(help_by_command(program, (*command, name)))
    return found


def without_marks(line):
    return re.sub(r"\\f.|\"|\\\(dq", "", line).replace("\\-", "-")


def sections_of_man_page(text):
    """The tags (the lines after .TP) of each .SS, or of each .SH that has none, by its title."""
    sections, title, takes = {}, "", False
    for line in text.splitlines():
        if head := re.match(r"\.S[HS] (.*)", line):
            title = without_marks(head.group(1))
            sections.setdefault(title, [])
        elif takes:
            sections[title].append(without_marks(re.sub(r"^\.[A-Z]+ ", "", line)))
        takes = line == ".TP"
    return sections


def options_in_tags(tags):
    return {option for tag in tags for option in LONG_OPTION.findall(tag)}


def fields_in_tags(tags):
    return {field for tag in tags for field in re.findall(r"[a-z_]+", tag)}


def differences(what, one, one_name, other, other_name):
    for name in sorted(one - other):
        yield f"{what}: {name} is in {one_name} and not in {other_name}"
    for name in sorted(other - one):
        yield f"{what}: {name} is in {other_name} and not in {one_name}"


def compare_host_page(by_command, page):
    sections = sections_of_man_page(page)
    common = options_in_tags(sections["COMMON OPTIONS"])
    groups = {name.split()[0] for name in by_command if " " in name}
    documented = {title for title in sections if re.fullmatch(r"[a-z]+( [a-z]+)?", title)}
    yield from differences("commands", set(by_command) - {""} - groups, "--help", documented, "kvhost.1")
    for name in sorted(documented & set(by_command)):
        told = options_in_tags(sections[name])
        yield from differences(name, by_command[name] - common, "--help", told - common, "kvhost.1")
    for option in sorted(common - set().union(*by_command.values())):
        yield f"common options: {option} is in kvhost.1 and no command has it"


def compare_completion(by_command, completion):
    def ask(question, *arguments):
        script = f'. "$1"; shift; {question} "$@"'
        return output_of(["bash", "-c", script, "bash", str(completion), *arguments]).split()

    groups = {name.split()[0] for name in by_command if " " in name}
    top = {name for name in by_command if name and " " not in name}
    yield from differences("commands", top, "--help", set(ask("_kvhost_commands")), "the completion")
    for group in sorted(groups):
        told = {name.split()[1] for name in by_command if name.startswith(group + " ")}
        offered = set(ask("_kvhost_subcommands", group))
        yield from differences(group, told, "--help", offered, "the completion")
    for name, options in sorted(by_command.items()):
        offered = set(ask("_kvhost_options", name))
        yield from differences(name or "kvhost", options, "--help", offered, "the completion")


def completions(completion, *words):
    """What is offered when the last of the words is to be completed."""
    script = '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _kvhost; printf "%s\\n" "${COMPREPLY[@]}"'
    return output_of(["bash", "-c", script, "bash", str(completion), *words]).split()


def try_completion(completion):
    expected = [
        (("kvhost", "rele"), ["release"]),
        (("kvhost", "config", ""), ["check"]),
        (("kvhost", "list", "--be"), ["--before"]),
        (("kvhost", "config", "check", "--js"), ["--json"]),
        (("kvhost", "list", "--state", "in"), ["in-doubt"]),
        (("kvhost", "release", "--state", ""), ["held"]),
        (("kvhost", "show", "--text", "--js"), ["--json"]),
        (("kvhost", "list", "--carrier", ""), []),
        (("kvhost", "--ver"), ["--version"]),
    ]
    for words, offers in expected:
        found = completions(completion, *words)
        if found != offers:
            yield f"completion of \"{' '.join(words)}\": expected {offers}, found {found}"


def constants_of(text):
    """The text constants of a C++ file by their name."""
    pattern = r"constexpr const char\* (k\w+) =\s*((?:\"[^\"]*\"\s*)+);"
    return {name: "".join(re.findall(r"\"([^\"]*)\"", value)) for name, value in re.findall(pattern, text)}


def fields_of_reader(text):
    """The fields that each function of a reader knows: the texts with which it refuses all others."""
    constants = constants_of(text)
    functions = [(found.start(), found.group(1)) for found in re.finditer(r"^[A-Za-z]\w* (Read\w+)\(", text, re.M)]
    for call in re.finditer(r"RefuseOthers\(\s*((?:\"[^\"]*\"\s*)+|k\w+)\)", text):
        function = [name for start, name in functions if start < call.start()][-1]
        names = constants.get(call.group(1)) or "".join(re.findall(r"\"([^\"]*)\"", call.group(1)))
        yield function, set(re.split(r",\s*|\s+or\s+", names.strip()))


def tables_of_readers(readers):
    """The fields by their table. A function whose table is not known is its own."""
    return {
        TABLE_OF_READER.get(function, function): fields
        for text in readers
        for function, fields in fields_of_reader(text)
    }


def compare_fields(readers, page):
    sections, tables = sections_of_man_page(page), tables_of_readers(readers)
    for table in sorted(set(TABLE_OF_READER.values()) ^ set(tables)):
        yield f"{table}: a reader and its table belong into TABLE_OF_READER; one of the two was not found"
    for table, fields in sorted(tables.items()):
        told = fields_in_tags(sections.get(table, []))
        yield from differences(table, fields, "its reader", told, "kvhost.toml.5")


def compare_document(readers, text):
    """The fields in the tables of docs/kvhost.md are those of the readers: "run.tick", and "server" of a carrier."""
    text = text[text.index("## Configuration"):text.index("## `kvhost send`")]
    told = {field for row in re.findall(r"^\|([^|]*)\|", text, re.M) for field in re.findall(r"`([a-z_.]+)`", row)}
    known = set()
    for table, fields in tables_of_readers(readers).items():
        if table.startswith("[carrier"):
            known |= fields - {"name"}
        elif table == "Top level":
            known.add("store")
        else:
            known |= {f"{table.strip('[]')}.{field}" for field in fields}
    yield from differences("configuration", known, "the readers", told, "docs/kvhost.md")


def complaints_about(page):
    if shutil.which("groff") is None:
        print("groff is not installed: the man pages are checked for their contents only")
        return
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    run = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", str(page)], capture_output=True, text=True,
                         timeout=60, env=environment, check=False)
    for line in run.stderr.splitlines():
        yield f"{page.name}: {line}"


def check(root, host, sink):
    manual, completion = root / "packaging" / "man", root / "packaging" / "completion" / "kvhost"
    by_command = help_by_command(host)
    yield from compare_host_page(by_command, (manual / "kvhost.1").read_text(encoding="utf-8"))
    yield from compare_completion(by_command, completion)
    yield from try_completion(completion)
    sink_page = sections_of_man_page((manual / "kvsink.1").read_text(encoding="utf-8"))
    sink_options = options_in_tags(sink_page["OPTIONS"])
    yield from differences("kvsink", help_by_command(sink)[""], "--help", sink_options, "kvsink.1")
    readers = [(root / "host" / name).read_text(encoding="utf-8") for name in READERS]
    yield from compare_fields(readers, (manual / "kvhost.toml.5").read_text(encoding="utf-8"))
    yield from compare_document(readers, (root / "docs" / "kvhost.md").read_text(encoding="utf-8"))
    for page in sorted(manual.iterdir()):
        yield from complaints_about(page)


def self_check():
    text = ("Usage: x\nOptions:\n  -h,--help     Help\n  --new INT=--no  Not --this\n  --to,them  x\n"
            "Acting:\n  stop      --that\n")
    assert options_in_help(text) == {"--help", "--new", "--to"}, options_in_help(text)
    assert commands_in_help(text) == ["stop"], commands_in_help(text)
    page = ('.SH COMMON OPTIONS\n.TP\n.BR \\-h ", " \\-\\-help\nx\n.SH COMMANDS\n'
            '.SS list\n.TP\n.BI \\-\\-old\\-one " N"\n\\-\\-text\n')
    assert options_in_tags(sections_of_man_page(page)["list"]) == {"--old-one"}
    found = list(compare_host_page({"": {"--help"}, "list": {"--help", "--new"}, "top": set()}, page))
    assert found == [
        "commands: top is in --help and not in kvhost.1",
        "list: --new is in --help and not in kvhost.1",
        "list: --old-one is in kvhost.1 and not in --help",
    ], found
    reader = ('constexpr const char* kNames =\n    "a, "\n    "b or c";\n'
              'Carrier ReadCarrierFields(ConfigTable& fields) {\n    fields.RefuseOthers(kNames);\n}\n'
              'void ReadRunFields(ConfigTable& fields) {\n    fields.RefuseOthers("tick, "\n        "keep or d");\n}\n')
    assert dict(fields_of_reader(reader)) == {
        "ReadCarrierFields": {"a", "b", "c"},
        "ReadRunFields": {"tick", "keep", "d"},
    }
    page = ".SS [run]\n.TP\n.B tick\n.TP\n.BR keep \", \" lost\n"
    found = [line for line in compare_fields([reader], page) if line.startswith("[run]")]
    document = "## Configuration\n| `run.tick`, `run.keep` | x |\n| `a`, `b` | `c` |\n| `z` |\n## `kvhost send`\n"
    assert list(compare_document([reader], document)) == [
        "configuration: c is in the readers and not in docs/kvhost.md",
        "configuration: run.d is in the readers and not in docs/kvhost.md",
        "configuration: z is in docs/kvhost.md and not in the readers",
    ], list(compare_document([reader], document))
    assert found == [
        "[run]: d is in its reader and not in kvhost.toml.5",
        "[run]: lost is in kvhost.toml.5 and not in its reader",
    ], found


def main(arguments):
    if arguments == ["--self-check"]:
        self_check()
        return 0
    if len(arguments) != 3:
        print(__doc__)
        return 2
    faults = list(check(Path(arguments[0]), arguments[1], arguments[2]))
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
