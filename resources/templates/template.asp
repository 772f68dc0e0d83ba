<%@ Language="VBScript" %>
<% Option Explicit %>
<!DOCTYPE html>
<html lang="en">
<head>
    <meta charset="utf-8">
    <title>Untitled</title>
</head>
<body>
<%
Response.Write "Hello, world!"
%>
</body>
</html>
