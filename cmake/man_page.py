#!/usr/bin/env python3
"""Writes the manual page of a program from what it says of itself: man_page.py PROGRAM VERSION ENVIRONMENT > PAGE.

PROGRAM is a path; its --help is asked, and that of each of its commands. ENVIRONMENT is a file in Markdown, whose first
table names environment variables. The page thus never differs from the program.
"""
import os
import re
import subprocess
import sys
import tempfile


def escape(text):
    text = text.replace('\\', '\\e').replace('-', '\\-')
    return '\\&' + text if text.startswith(('.', "'")) else text


def ask(path, commands):
    """The parts of a help text: description, usage, {title: [(term, meaning)]}, notes."""
    with tempfile.TemporaryDirectory() as home:
        text = subprocess.run([path, *commands, '--help'], env={**os.environ, 'HOME': home}, check=True, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE).stdout
    description, usage, rest = re.fullmatch(r'(.*?)\n?Usage: (.*?)\n(.*)', text, re.S).groups()
    usage = usage.replace(path, os.path.basename(path), 1)
    lists, notes, entries = {}, [], None
    for line in rest.splitlines():
        if re.fullmatch(r'(Positionals|Options|Subcommands):', line):
            entries = lists.setdefault(line[:-1], [])
        elif entries is not None and re.match(r' {20,}\S', line):
            entries[-1][1].append(line.strip())
        elif entries is not None and re.match(r'  \S', line):
            term, _, meaning = line.strip().partition('  ')
            entries.append((term, [meaning.strip()] if meaning.strip() else []))
        elif line.strip():
            entries = None
            notes.append(line)
    return description.strip(), usage.strip(), lists, notes


def write_list(entries):
    for term, meaning in entries:
        print(f'.TP\n.B {escape(term)}\n{escape(" ".join(meaning)) or chr(92) + "&"}')


def write_command(path, commands):
    description, usage, lists, notes = ask(path, commands)
    print(f'.SS {escape(" ".join(commands))}\n{escape(description)}.\n.PP\n.B {escape(usage)}')
    options = [entry for entry in lists.get('Options', []) if not entry[0].startswith('-h,')]
    write_list(lists.get('Positionals', []) + options)
    for note in notes:
        print(f'.PP\n{escape(note)}')
    for part, _ in lists.get('Subcommands', []):
        write_command(path, [*commands, part])


def main():
    path, version, environment = sys.argv[1:]
    name = os.path.basename(path)
    description, usage, lists, notes = ask(path, [])
    print(f'.TH {name} 1 "" "vq_identity {version}"\n.SH NAME\n{escape(name)} \\- {escape(description.rstrip("."))}')
    print(f'.SH SYNOPSIS\n.B {escape(usage)}\n.SH OPTIONS')
    write_list(lists['Options'])
    if 'Subcommands' in lists:
        print('.SH COMMANDS')
        for part, _ in lists['Subcommands']:
            write_command(path, [part])
    print('.SH NOTES\n.nf')
    for note in notes:
        print(escape(note))
    print('.fi\n.SH ENVIRONMENT')
    with open(environment, encoding='utf-8') as file:
        table = re.search(r'(?:^\|.*\n)+', file.read(), re.M).group()
    for variable, meaning in re.findall(r'^\| `(.*?)` \| (.*?) \|$', table, re.M):
        write_list([(variable, [meaning.replace('`', '')])])
    print('.SH FILES\n.TP\n.I $HOME/.config/vqvds/\nThe registry of servers, the endpoints of IPC addresses, the log file.')
    print('.SH SEE ALSO')
    others = ['RIGCTL', 'mock_identity_device', 'sample_observer', 'sample_producer', 'vdserver']
    print(',\n'.join(f'.BR {other} (1)' for other in others if other != name).replace(',\n', ' ,\n'))


main()
