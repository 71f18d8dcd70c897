#!/usr/bin/python3
"""Plants faults at random and prints those that no test finds: mutants.py [--seed N] [--count N] PART...

PART is "endpoints" (switching/), "framework" (common/, httpd/, log/, main/), "model" (vswitch/switch/), or a path
of a source file. The faults are planted in a copy of what is committed, which is built and tested beside the tree; with
--keep DIRECTORY that copy stays for the next time, and is quicker. A fault that survives either changes nothing anybody
could notice, or wants a test.
"""
import argparse
import glob
import io
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile

PARTS = {'endpoints': ['switching/*.cpp'], 'framework': ['common/*.cpp', 'httpd/*.cpp', 'log/*.cpp', 'main/*.cpp'],
         'model': ['vswitch/switch/*.cpp']}

# A fault is what a line matches and what takes the match's place.
FAULTS = [
    (r'(?<![\w."\'])\d+(?![\w."\'])', lambda match: str(int(match[0]) + 1)),
    (r'"[a-z]\w*"', lambda match: match[0][:-1] + 'x"'),
    (r' == ', ' != '), (r' != ', ' == '), (r' < ', ' <= '), (r' <= ', ' < '), (r' > ', ' >= '), (r' >= ', ' > '),
    (r' && ', ' || '), (r' \|\| ', ' && '), (r' \+ ', ' - '), (r' - ', ' + '), (r'\btrue\b', 'false'), (r'\bfalse\b', 'true'),
    (r'\bif \((?!auto|const|int|uint32_t|char)(.*)\)$', r'if (!(\1))'),
    (r'^(\s+)(?!return|break|continue|case|\w+ \w+[ ;=]|const|static|auto|uint)[\w:>.*&-]+(\(.*\)|\[.*\]|\w*)'
     r'( [-+|&]?= .*|\+\+)?;$', r'\1;'),
    (r'(&openClient, [^,()]+), ([^,()]+)([,)])', r'\1, 1 + \2\3'),
    (r'\b(\w+)\(([^,()]+), ([^,()]+)\)', r'\1(\3, \2)'),
    (r'openResult\((.*)\)\)', r'\1)'), (r'\bOPEN_FAILED\b', 'OPEN_EXISTS'), (r'\bOPEN_BAD_ARGUMENT\b', 'OPEN_FAILED'),
    (r'answerOutcome\(', 'answerOutcomeFixed('), (r'answerDataOrOutcome\(', 'answerData('),
    (r'answerData\(', 'answerDataOrOutcome('), (r'\bbufferSized\(', 'lengthSized('), (r'\blengthSized\(', 'bufferSized('),
    (r'\bintegerMember\(', 'saturatedMember('), (r'\bsaturatedMember\(', 'integerMember('),
    (r'\bintegerOfNumberMember\(', 'integerMember('), (r'\bHTTP_PUT\b', 'HTTP_POST'), (r'\bHTTP_GET\b', 'HTTP_PUT'),
    (r'\buint32_t\b', 'uint16_t'), (r'\(int32_t\)', ''), (r'LOCK_EX', 'LOCK_SH'),
]


def faultsOf(text):
    """[(line number, the line with a fault)] of all faults that can be planted in a source text."""
    found, comment = [], False
    for number, line in enumerate(text.split('\n')):
        code = line.split('/*')[0].rstrip()
        if not comment and code and not code.lstrip().startswith(('#', '*', '//', 'static_assert')):
            for pattern, replacement in FAULTS:
                for match in re.finditer(pattern, code):
                    changed = code[:match.start()] + re.sub(pattern, replacement, code[match.start():], count=1)
                    if changed != code:
                        found.append((number, changed))
        comment = (comment or '/*' in line) and '*/' not in line.rpartition('/*')[2]
    return found


class Tree:
    """A copy of what is committed, with the targets built, or all."""

    def __init__(self, directory, *targets):
        self.targets = ['--target', *targets] if targets else []
        self.source, self.build = f'{directory}/source', f'{directory}/build'
        top = subprocess.check_output(['git', 'rev-parse', '--show-toplevel'], text=True).strip()
        with tarfile.open(fileobj=io.BytesIO(subprocess.check_output(['git', '-C', top, 'archive', 'HEAD']))) as files:
            for member in files.getmembers():  # what is as it was keeps its time, and is not built again
                path = f'{self.source}/{member.name}'
                if not member.isfile() or not os.path.isfile(path) or open(path, 'rb').read() != files.extractfile(member).read():
                    files.extract(member, self.source)
                    os.utime(path)
        subprocess.check_call(['cmake', '-S', self.source, '-B', self.build, '-DCMAKE_BUILD_TYPE=Release'],
                              stdout=subprocess.DEVNULL)
        if not self.make():
            sys.exit('The tree does not build without a fault.')

    def make(self):
        return self.run(['cmake', '--build', self.build, '-j', str(os.cpu_count()), *self.targets], 3600) == 0

    def run(self, command, seconds):
        """Its exit status, -1 when it takes longer."""
        with subprocess.Popen(command, cwd=self.source, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              start_new_session=True) as process:
            try:
                return process.wait(seconds)
            except BaseException as reason:  # nothing goes on behind the script's back, whatever ends it
                os.killpg(process.pid, signal.SIGKILL)
                if not isinstance(reason, subprocess.TimeoutExpired):
                    raise
                return -1

    def plant(self, path, text):
        with open(f'{self.source}/{path}', 'w', encoding='utf-8') as file:
            file.write(text)

    def finds_fault(self, path, quick):
        """What finds the fault in `path`: the tests of that part first, then, unless it is to be quick, all others."""
        proof = ['tests/proof/proof.py', '--first', self.build]
        unit, program, vswitch = (['env', 'GTEST_FAIL_FAST=1', f'{self.build}/{room}_tests'] for room in ('unit', 'program', 'vswitch'))
        family = os.path.basename(path).removesuffix('.cpp').replace('protected_port', 'protectedport').replace('_', '-')
        description = f'{self.source}/api/openapi.json'
        first = {'switching': [proof + [description, f'/{family}/']],
                 'vswitch': [vswitch]}.get(path.split('/')[0], [unit])
        rest = [program, vswitch, proof + [description, '/macal/', '/mvrp/']] if quick else [
            ['ctest', '--test-dir', self.build, '--stop-on-failure', '-j', str(os.cpu_count())]]
        for command in first + rest:
            if self.run(command, 900) != 0:
                return next(word for word in map(os.path.basename, command) if word in ('proof.py', 'unit_tests', 'program_tests', 'vswitch_tests', 'ctest'))
        return None


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument('--seed', type=int, default=1)
    arguments.add_argument('--count', type=int, default=50)
    arguments.add_argument('--keep', metavar='DIRECTORY')
    arguments.add_argument('--quick', action='store_true', help='only the tests of the part in which the fault is')
    arguments.add_argument('parts', nargs='+', metavar='PART')
    options = arguments.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    directory = options.keep or tempfile.mkdtemp(prefix='mutants-')
    tree = Tree(directory, *(['switching_v2.cgi', 'vswitch', 'sandbox', 'unit_tests', 'program_tests', 'vswitch_tests'] if options.quick else []))
    candidates = []
    for pattern in sum((PARTS.get(part, [part]) for part in options.parts), []):
        for path in sorted(glob.glob(pattern, root_dir=tree.source)):
            with open(f'{tree.source}/{path}', encoding='utf-8') as file:
                text = file.read()
            candidates += [(path, text, number, line) for number, line in faultsOf(text)]
    chosen = random.Random(options.seed).sample(candidates, len(candidates))
    built = survived = 0
    for path, text, number, line in chosen:
        if built == options.count:
            break
        lines = text.split('\n')
        before, lines[number] = lines[number], line
        tree.plant(path, '\n'.join(lines))
        if tree.make():
            built += 1
            finder = tree.finds_fault(path, options.quick)
            survived += finder is None
            print(f'{finder or "SURVIVED"}: {path}:{number + 1}: {before.strip()}  =>  {line.strip()}', flush=True)
        tree.plant(path, text)
    print(f'{built - survived} of {built} faults found (seed {options.seed}, {len(candidates)} to choose from)')
    if not options.keep:
        shutil.rmtree(directory)


if __name__ == '__main__':
    main()
