Option Explicit

MsgBox "Hello, world!"
