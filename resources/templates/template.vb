Imports System

Module Program
    Sub Main()
        Console.WriteLine("Hello, world!")
    End Sub
End Module
