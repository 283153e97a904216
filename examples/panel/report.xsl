<?xml version="1.0" encoding="UTF-8"?>
<!-- All settings on one page, a table for each page of the panel. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8" doctype-system="about:legacy-compat"/>

  <xsl:template match="/report">
    <html>
      <head>
        <title><xsl:value-of select="page[1]/@title"/></title>
        <style>
          body { margin: 2rem auto; max-width: 40rem; font: 1rem/1.5 system-ui, sans-serif; }
          table { width: 100%; border-collapse: collapse; }
          td { padding: .4rem 0; border-bottom: 1px solid #ddd; }
          td + td { text-align: end; color: #555; }
        </style>
      </head>
      <body dir="auto"><xsl:apply-templates select="page[setting]"/></body>
    </html>
  </xsl:template>

  <xsl:template match="page">
    <h2><xsl:value-of select="@title"/></h2>
    <table>
      <xsl:for-each select="setting">
        <tr><td><xsl:value-of select="@title"/></td><td><xsl:value-of select="@value"/></td></tr>
      </xsl:for-each>
    </table>
  </xsl:template>
</xsl:stylesheet>
