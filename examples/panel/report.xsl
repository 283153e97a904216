<?xml version="1.0" encoding="UTF-8"?>
<!-- All settings on one page. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8" doctype-system="about:legacy-compat"/>

  <xsl:template match="/report">
    <html>
      <head>
        <title>Settings</title>
        <style>
          body { margin: 2rem auto; max-width: 40rem; font: 1rem/1.5 system-ui, sans-serif; }
          table { width: 100%; border-collapse: collapse; }
          td { padding: .4rem 0; border-bottom: 1px solid #ddd; text-align: start; }
        </style>
      </head>
      <body dir="auto"><table><xsl:apply-templates/></table></body>
    </html>
  </xsl:template>

  <xsl:template match="setting">
    <tr><td><xsl:value-of select="@title"/></td><td><xsl:value-of select="@value"/></td></tr>
  </xsl:template>
</xsl:stylesheet>
