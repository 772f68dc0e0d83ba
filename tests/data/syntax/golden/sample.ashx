<%@ WebHandler Language="C#" Class="Echo" %>
using System.Web;
// echoes the query
public class Echo : IHttpHandler {
    public void ProcessRequest(HttpContext c) { c.Response.Write("ok\n"); }
    public bool IsReusable { get { return false; } }
}
