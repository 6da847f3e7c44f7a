"""Writes a description as YAML."""

from __future__ import annotations

from typing import Any, Dict, Mapping

_HEAD = """\
# A simulated host: ryn-sim init makes it, ryn-sim export wrote this. What was counted is not kept here: a host made
# from this counts as if it had been like this since its host time 0 (ryn-sim save keeps everything).
"""


def to_yaml(description: Mapping[str, Any]) -> str:
    """The description as people write it: a block for the whole, a line for each thing in it."""
    import yaml  # type: ignore[import]

    from .document import _Loader

    class Dumper(getattr(yaml, "CSafeDumper", yaml.SafeDumper)):  # type: ignore[misc]
        """Quotes what either this tool's or another reader of YAML would take for something other than a text."""

        yaml_implicit_resolvers = {key: list(found) for key, found in yaml.SafeDumper.yaml_implicit_resolvers.items()}

        def ignore_aliases(self, data: Any) -> bool:
            return True

    for first, found in _Loader.yaml_implicit_resolvers.items():
        Dumper.yaml_implicit_resolvers.setdefault(first, []).extend(found)

    class Line(Dict[str, Any]):
        """Written in braces."""

    Dumper.add_representer(
        Line, lambda dumper, data: dumper.represent_mapping("tag:yaml.org,2002:map", data, flow_style=True)
    )
    Dumper.add_representer(
        list,
        lambda dumper, data: dumper.represent_sequence(
            "tag:yaml.org,2002:seq", data, flow_style=not any(isinstance(item, dict) for item in data)
        ),
    )

    def lines(value: Any) -> Any:
        """Everything within this value on one line, if it is short enough."""
        if isinstance(value, list):
            return [lines(item) for item in value]
        return Line((key, lines(item)) for key, item in value.items()) if isinstance(value, dict) else value

    def block(value: Any) -> Any:
        """A mapping with a line for each key; a list or mapping of mappings has a line for each of those."""
        if isinstance(value, list):
            return [block(item) if isinstance(item, dict) and not _is_plain(item) else lines(item) for item in value]
        if not isinstance(value, dict):
            return value
        return {key: block(item) if key == "properties" else lines(item) for key, item in value.items()}

    parts = []
    for key, value in description.items():
        shaped = block(value) if key in ("nics", "switches", "balancer") else lines(value)
        part = yaml.dump(
            {key: shaped}, Dumper=Dumper, sort_keys=False, width=110, allow_unicode=True, default_flow_style=False
        )
        gap = "\n" if key in ("numa", "nics", "switches", "ports", "traffic", "faults", "events", "balancer") else ""
        parts.append(gap + part)
    return _HEAD + "".join(parts)


def _is_plain(value: Mapping[str, Any]) -> bool:
    return not any(isinstance(item, (dict, list)) for item in value.values())
