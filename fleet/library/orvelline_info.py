#!/usr/bin/python3
"""An Ansible module: what orvelline-repair says of a machine, or what a package holds."""

from ansible.module_utils.orvelline import located, look, packageof, serve

DOCUMENTATION = r"""
module: orvelline_info
short_description: Tells what is installed of Orvelline's plug-ins
description:
  - Returns what C(orvelline-repair --json) says, as it is, and whether something is to be done.
  - With I(package), returns C(product), C(format), C(bundles) and C(digest) of the package instead.
options:
  package: {type: path, description: "Path of a package's archive."}
  program: {type: path, description: "Path of the installer, else ~/orvelline/bin."}
  test_root: {type: path, description: "Directory that replaces the home directory."}
  timeout: {type: int, default: 600, description: "Seconds for all programs together."}
"""


def act(params, _check, result):
    if params["package"]:
        package = packageof(params["package"])
        result.update({name: value for name, value in vars(package).items()
                       if name not in ("archive", "entries")})
    else:
        facts, wrong = look(located(params))
        result.update(facts, outcome="in need of attention" if wrong else "well")


if __name__ == "__main__":
    serve(act, package={"type": "path"})
