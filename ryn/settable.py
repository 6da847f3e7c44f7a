"""An attribute that can be set to more types than it gives, which a property cannot say to type checkers."""

from __future__ import annotations

from typing import Any, Callable, Generic, Optional, TypeVar, Union, overload

OwnerT = TypeVar("OwnerT")
GivenT = TypeVar("GivenT")
TakenT = TypeVar("TakenT")


class Settable(Generic[OwnerT, GivenT, TakenT]):
    """A property of two functions; its docstring is that of the first."""

    def __init__(self, get: Callable[[OwnerT], GivenT], set_: Callable[[OwnerT, TakenT], None]):
        self._get = get
        self._set = set_
        self.__doc__ = get.__doc__

    @overload
    def __get__(self, owner: None, kind: Any) -> Settable[OwnerT, GivenT, TakenT]:
        ...

    @overload
    def __get__(self, owner: OwnerT, kind: Any) -> GivenT:
        ...

    def __get__(self, owner: Optional[OwnerT], kind: Any) -> Union[Settable[OwnerT, GivenT, TakenT], GivenT]:
        return self if owner is None else self._get(owner)

    def __set__(self, owner: OwnerT, value: TakenT) -> None:
        self._set(owner, value)
