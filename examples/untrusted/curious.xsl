<?xml version="1.0" encoding="UTF-8"?>
<!-- Takes another stylesheet in, though nobody allowed it. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:include href="part.xsl"/>
</xsl:stylesheet>
