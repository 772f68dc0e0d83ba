<%@ Page Language="C#" %>
<html><body>
<% var msg = "hi \"there\""; // greet %>
<p><%= DateTime.Now %></p>
<script runat="server">
void Page_Load(object s, EventArgs e) { }
</script>
</body></html>
