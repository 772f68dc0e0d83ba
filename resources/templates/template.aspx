<%@ Page Language="C#" %>
<!DOCTYPE html>
<script runat="server">
    protected void Page_Load(object sender, EventArgs e)
    {
    }
</script>
<html lang="en">
<head runat="server">
    <meta charset="utf-8">
    <title>Untitled</title>
</head>
<body>
    <form id="form1" runat="server">
    </form>
</body>
</html>
