"""Notification records as dataclasses, with the record's JSON text (the store's form), and a page
of them."""

# No postponed annotations here: the dataclasses' annotations stay objects, so that
# typing.get_type_hints() resolves them although the classes are shown as the package's own.
import dataclasses
import json
from typing import Any, Optional


@dataclasses.dataclass(frozen=True)
class NotificationData:
    text: Optional[str] = None
    sender: Optional[str] = None


@dataclasses.dataclass(frozen=True)
class Record:
    """A notification record: its public fields, and `json`, the text it was read from (empty for a
    record made here). Fields the library keeps to itself ("createdAt", ...) travel in `json`."""

    data: Optional[NotificationData] = None
    id: Optional[str] = None
    is_read: Optional[bool] = None
    json: str = ""

    @classmethod
    def from_json(cls, text: str) -> "Record":
        return cls.from_object(json.loads(text), text)

    @classmethod
    def from_object(cls, value: dict[str, Any], text: Optional[str] = None) -> "Record":
        data = value.get("data")
        return cls(data=NotificationData(data.get("text"), data.get("sender")) if data is not None else None,
                   id=value.get("id"), is_read=value.get("isRead"),
                   json=text if text is not None else json.dumps(value, separators=(",", ":")))

    def to_json(self) -> str:
        """The record's JSON: the text it was read from, with the public fields as they are now."""
        value = json.loads(self.json) if self.json else {}
        for key, field in (("id", self.id), ("isRead", self.is_read)):
            if field is None:
                value.pop(key, None)
            else:
                value[key] = field
        if self.data is None:
            value.pop("data", None)
        else:
            value["data"] = {k: v for k, v in (("text", self.data.text), ("sender", self.data.sender)) if v is not None}
        return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


@dataclasses.dataclass(frozen=True)
class Page:
    """One page of records, newest first, and `next`, the cursor of the following page ("" after
    the last)."""

    records: list[Record]
    next: str


# Shown, pickled and named in tracebacks by their public names.
for _public in (NotificationData, Record, Page):
    _public.__module__ = "fexo"
