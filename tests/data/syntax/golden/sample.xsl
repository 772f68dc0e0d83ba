<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<!-- root -->
<xsl:template match="/">
  <out total="{count(//row)}"><xsl:value-of select="concat('a', 'b')"/></out>
  <xsl:if test="a and
      b">yes</xsl:if>
</xsl:template>
</xsl:stylesheet>
