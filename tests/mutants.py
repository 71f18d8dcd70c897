#!/usr/bin/python3
"""mutants.py PART... - tests the tests: plants random faults in the sources, and prints those that no test finds.

PART is "endpoints" (switching/), "framework" (common/, httpd/, log/, main/), "model" (vswitch/switch/), or the path of
a source file. The faults are planted in a copy of what is committed, which is built and tested in another directory. A
fault that survives either changes nothing that can be noticed, or needs a test.
"""
import glob
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, ROOT + '/tools')
from arguments import parser  # noqa: E402

PARTS = {'endpoints': ['switching/*.cpp'], 'framework': ['common/*.cpp', 'httpd/*.cpp', 'log/*.cpp', 'main/*.cpp'],
         'model': ['vswitch/switch/*.cpp']}

# Faults: a pattern for code, and what replaces the match.
FAULTS = [
    (r'(?<![\w."\'])\d+(?![\w."\'])', lambda match: str(int(match[0]) + 1)),
    (r'"[a-z]\w*"', lambda match: match[0][:-1] + 'x"'),
    (r' == ', ' != '), (r' != ', ' == '), (r' < ', ' <= '), (r' <= ', ' < '), (r' > ', ' >= '), (r' >= ', ' > '),
    (r' && ', ' || '), (r' \|\| ', ' && '), (r' \+ ', ' - '), (r' - ', ' + '),
    (r'\btrue\b', 'false'), (r'\bfalse\b', 'true'),
    (r'\bif \((?!auto|const|int|uint32_t|char)(.*)\)$', r'if (!(\1))'),
    (r'^(\s+)(?!return|break|continue|case|\w+ \w+[ ;=]|const|static|auto|uint)[\w:>.*&-]+(\(.*\)|\[.*\]|\w*)'
     r'( [-+|&]?= .*|\+\+)?;$', r'\1;'),
    (r'(&openClient, [^,()]+), ([^,()]+)([,)])', r'\1, 1 + \2\3'),
    (r'\b(\w+)\(([^,()]+), ([^,()]+)\)', r'\1(\3, \2)'),
    (r'openResult\((.*)\)\)', r'\1)'), (r'\bOPEN_FAILED\b', 'OPEN_EXISTS'), (r'\bOPEN_BAD_ARGUMENT\b', 'OPEN_FAILED'),
    (r'answerOutcome\(', 'answerOutcomeFixed('), (r'answerDataOrOutcome\(', 'answerData('),
    (r'answerData\(', 'answerDataOrOutcome('),
    (r'\bbufferSized\(', 'lengthSized('), (r'\blengthSized\(', 'bufferSized('),
    (r'\bintegerMember\(', 'saturatedMember('), (r'\bsaturatedMember\(', 'integerMember('),
    (r'\bintegerOfNumberMember\(', 'integerMember('), (r'\bHTTP_PUT\b', 'HTTP_POST'), (r'\bHTTP_GET\b', 'HTTP_PUT'),
    (r'\buint32_t\b', 'uint16_t'), (r'\(int32_t\)', ''), (r'LOCK_EX', 'LOCK_SH'),
]


def faultsOf(text):
    """[(line number, line with the fault)] of all faults that can be planted in a source text."""
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
    """A copy of what is committed, built."""

    def __init__(self, directory):
        self.source, self.build = f'{directory}/source', f'{directory}/build'
        git = ['git', '-C', self.source]
        if not os.path.exists(self.source):
            subprocess.check_call(['git', 'clone', '-q', '--no-checkout', ROOT, self.source])
        subprocess.check_call([*git, 'fetch', '-q', 'origin', 'HEAD'])
        subprocess.check_call([*git, 'checkout', '-qf', 'FETCH_HEAD'])  # an unchanged file is not compiled again
        subprocess.check_call(['cmake', '-S', self.source, '-B', self.build, '-DCMAKE_BUILD_TYPE=Release'],
                              stdout=subprocess.DEVNULL)
        if not self.make():
            sys.exit('The tree does not build without a fault.')

    def make(self):
        return self.run(['cmake', '--build', self.build, '-j', str(os.cpu_count())], 3600) == 0

    def run(self, command, seconds):
        """Runs the command. Returns its exit status, or -1 when it takes longer."""
        with subprocess.Popen(command, cwd=self.source, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              start_new_session=True) as process:
            try:
                return process.wait(seconds)
            except BaseException as reason:  # whatever happens, no process is left
                os.killpg(process.pid, signal.SIGKILL)
                if not isinstance(reason, subprocess.TimeoutExpired):
                    raise
                return -1

    def plant(self, path, text):
        with open(f'{self.source}/{path}', 'w', encoding='utf-8') as file:
            file.write(text)

    def commands_for(self, path, quick):
        """(name, command) of the tests for a fault in `path`: its own tests, then the others (quick: some)."""
        def proof(*parts):
            return 'proof', ['tests/proof/proof.py', '--first', self.build, 'api/openapi.json', *parts]

        def tests(*arguments):
            return ' '.join(['ctest', *arguments]), ['ctest', '--test-dir', self.build, '--stop-on-failure', '-j',
                                                     str(os.cpu_count()), *arguments]

        family = os.path.basename(path)[:-4].replace('protected_port', 'protectedport').replace('_', '-')
        first = {'switching': proof(f'/{family}/'), 'vswitch': tests('-L', 'vswitch')}.get(
            path.split('/')[0], ('unit_tests', [f'{self.build}/unit_tests']))
        return [first, *([tests('-L', 'program'), proof('/macal/', '/mvrp/')] if quick else [tests()])]

    def finder_of_fault(self, path, quick):
        """The name of the first tests that fail; None if none do."""
        for name, command in self.commands_for(path, quick):
            if self.run(command, 900) != 0:
                return name
        return None


def main():
    arguments = parser(__doc__)
    arguments.add_argument('--seed', type=int, default=1, help='of the random choice (1)')
    arguments.add_argument('--count', type=int, default=50, help='how many faults to plant (50)')
    arguments.add_argument('--keep', metavar='DIRECTORY', help='build there, and keep that for a quicker next time')
    arguments.add_argument('--quick', action='store_true', help='run fewer of the tests of other parts')
    arguments.add_argument('parts', nargs='+', metavar='PART')
    options = arguments.parse_args()
    paths = []
    for part in options.parts:
        found = [path for pattern in PARTS.get(part, [part]) for path in sorted(glob.glob(pattern, root_dir=ROOT))]
        if not any(path.endswith('.cpp') for path in found):
            arguments.error(f'no source file matches {part}')
        paths += found
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    directory = options.keep or tempfile.mkdtemp(prefix='mutants-')
    tree = Tree(directory)
    candidates = []
    for path in paths:
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
            finder = tree.finder_of_fault(path, options.quick)
            survived += finder is None
            print(f'{finder or "SURVIVED"}: {path}:{number + 1}: {before.strip()}  =>  {line.strip()}', flush=True)
        tree.plant(path, text)
    print(f'{built - survived} of {built} faults found (seed {options.seed}, {len(candidates)} to choose from)')
    if not options.keep:
        shutil.rmtree(directory)


if __name__ == '__main__':
    main()
