-- PROPFIND with Depth 1 and the usual property list, over and over.
wrk.method = "PROPFIND"
wrk.headers["Depth"] = "1"
wrk.headers["Content-Type"] = "application/xml"
wrk.body = '<?xml version="1.0" encoding="utf-8"?><D:propfind xmlns:D="DAV:"><D:prop>' ..
  '<D:resourcetype/><D:getcontentlength/><D:getlastmodified/><D:creationdate/>' ..
  '</D:prop></D:propfind>'
