"""Says what a build for an interpreter needs to know, as lines of NAME=VALUE; meson.build runs it on that interpreter.

Meson's own module asks through distutils, which Python 3.12 no longer has.

    interpreter.py PREFIX

version   of the interpreter, such as 3.11
include   the folder of Python.h
suffix    what the file of an extension is called behind its name, without the dot in front
site      where a module is installed so that this interpreter finds it
searched  whether it looks there by itself
"""

import os
import site
import sys
import sysconfig

DEFAULT_PREFIX = "/usr/local"


def site_folder(prefix: str) -> str:
    """The first folder of the interpreter's path for modules that lies right below PREFIX/lib. Without one: the
    interpreter's own under Meson's default prefix, and below the prefix otherwise.
    """
    searched = site.getsitepackages()
    library = os.path.join(prefix, "lib", "")
    for folder in searched:
        if folder.startswith(library):
            return folder
    if prefix == DEFAULT_PREFIX:
        return sysconfig.get_path("platlib")
    return os.path.join(library, "python%d.%d" % sys.version_info[:2], "site-packages")


def main(prefix: str) -> None:
    if sys.version_info < (3, 8):
        sys.exit("Python 3.8 or later is needed, and this is %d.%d" % sys.version_info[:2])
    include = sysconfig.get_path("include")
    if not os.path.exists(os.path.join(include, "Python.h")):
        sys.exit("its headers are missing: there is no %s/Python.h (Debian: python3-dev)" % include)
    folder = site_folder(os.path.normpath(prefix))
    print("version=%d.%d" % sys.version_info[:2])
    print("include=" + include)
    print("suffix=" + sysconfig.get_config_var("EXT_SUFFIX").lstrip("."))
    print("site=" + folder)
    print("searched=" + ("yes" if folder in site.getsitepackages() else "no"))


main(sys.argv[1])
