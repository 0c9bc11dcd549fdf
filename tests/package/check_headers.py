#!/usr/bin/env python3
"""Checks the include structure of the library's public headers.

    check_headers.py CORE_SUPPORT_DIR

- Third-party libraries other than Qt stay out of the headers: they are
  linked privately.
- Interfaces that only pass statuses and shared types around reach nothing
  else of the tree engine (the closure of their includes is listed below).
- Between folders, headers include each other in one direction only; the
  shared-type headers, which include nothing of the project, are left out of
  that graph, and so is the one cycle the model itself has: structure nodes
  are UCP nodes (ucp_engine -> ucp) and the UCP views walk structure nodes
  (ucp -> ucp_engine).
"""
import re
import sys
from pathlib import Path

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
PRIVATE_LIBRARIES = re.compile(r'^(mxml|quazip|zlib|zip|unzip)\b')

SHARED_TYPES = {
    'cameras/filetype.h',
    'ucp/serializationformat.h',
    'ucp_engine/analysis.ids.h',
    'ucp_engine/vxstatus.h',
}

# Every project header each of these may reach, directly or not.
ALLOWED_CLOSURE = {
    'cameras/camera_interfaces.h': {'cameras/filetype.h', 'ucp_engine/vxstatus.h'},
    'cameras/camera_pool.h': {'cameras/camera_interfaces.h', 'cameras/filetype.h', 'ucp_engine/vxstatus.h'},
    'analysis/RepositoryComponents.h': {'ucp_engine/analysis.ids.h', 'ucp_engine/vxstatus.h'},
    'analysis/XML_Reporting.h': {'analysis/RepositoryComponents.h', 'ucp_engine/analysis.ids.h',
                                 'ucp_engine/vxstatus.h'},
    'policy/ContentManagement.h': {'cameras/filetype.h', 'ucp/serializationformat.h'},
}

MODEL_CYCLE = {('ucp_engine', 'ucp'), ('ucp', 'ucp_engine')}


def project_includes(root, header):
    text = (root / header).read_text(encoding='utf-8')
    return [(kind, name) for kind, name in INCLUDE.findall(text)]


def main():
    root = Path(sys.argv[1])
    headers = sorted(str(p.relative_to(root)) for p in root.glob('*/*.h'))
    includes = {}
    problems = []
    for header in headers:
        includes[header] = []
        for kind, name in project_includes(root, header):
            if kind == '<':
                if PRIVATE_LIBRARIES.match(name):
                    problems.append(f'{header} includes <{name}>, a library vxcore links privately')
            elif (root / name).is_file():
                includes[header].append(name)

    def closure(header):
        seen, todo = set(), list(includes.get(header, []))
        while todo:
            name = todo.pop()
            if name not in seen:
                seen.add(name)
                todo.extend(includes.get(name, []))
        return seen

    for header, allowed in ALLOWED_CLOSURE.items():
        extra = closure(header) - allowed
        if extra:
            problems.append(f'{header} reaches {", ".join(sorted(extra))}')

    # Folder graph without the shared types and the model's own cycle.
    edges = {}
    for header, names in includes.items():
        for name in names:
            source, target = header.split('/')[0], name.split('/')[0]
            if source != target and name not in SHARED_TYPES and (source, target) not in MODEL_CYCLE:
                edges.setdefault(source, {}).setdefault(target, f'{header} -> {name}')
    state = {}

    def visit(folder, path):
        state[folder] = 'open'
        for target, example in sorted(edges.get(folder, {}).items()):
            if state.get(target) == 'open':
                cycle = path[path.index(target):] + [target] if target in path else [folder, target]
                problems.append('folders include each other: ' + ' -> '.join(cycle) + f' (e.g. {example})')
            elif target not in state:
                visit(target, path + [target])
        state[folder] = 'done'

    for folder in sorted(edges):
        if folder not in state:
            visit(folder, [folder])

    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
