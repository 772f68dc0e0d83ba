Imports System.Text
' counts words
Module Counter
  Dim greeting As String = "say ""hi"""  ' trailing
  Rem old note
End Module
