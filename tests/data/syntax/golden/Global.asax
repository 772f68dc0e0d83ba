<%@ Application Language="VB" %>
<script runat="server">
Sub Application_Start(ByVal s As Object, ByVal e As EventArgs)
    ' starts
End Sub
</script>
