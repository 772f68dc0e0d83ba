<%@ page contentType="text/html; charset=UTF-8" pageEncoding="UTF-8" %>
<!DOCTYPE html>
<html lang="en">
<head>
    <meta charset="utf-8">
    <title>Untitled</title>
</head>
<body>
<%
    String message = "Hello, world!";
%>
    <p><%= message %></p>
</body>
</html>
