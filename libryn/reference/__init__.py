"""The description of the methods of `_libryn`, and what is made from it."""
