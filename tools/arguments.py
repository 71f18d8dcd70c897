"""arguments.py - the arguments of the Python scripts: --help prints a script's docstring; a wrong argument ends it."""
import argparse
import os


def parser(documentation):
    return argparse.ArgumentParser(description=documentation, formatter_class=argparse.RawDescriptionHelpFormatter)


def build_with(*files):
    """The type of an argument: a directory in which these files were built."""
    def build(directory):
        for file in files:
            if not os.path.exists(os.path.join(directory, file)):
                raise argparse.ArgumentTypeError(f"there is no {file} in {directory}: BUILD is build-test after ./test.sh")
        return directory
    return build


PROGRAM = ("switching_v2.cgi", "vswitch", "lib/libsandbox.so")  # what a Switch runs
