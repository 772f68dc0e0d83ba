<%@ page contentType="text/html" %>
<%-- hidden <b>note</b> --%>
<ul>
<% for (String s : list) { %><li><%= s.trim() %></li><% } // end %>
</ul>
<jsp:scriptlet>int n = 'x';</jsp:scriptlet>
