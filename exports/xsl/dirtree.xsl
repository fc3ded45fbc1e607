<?xml version="1.0"?>
<!-- One watched directory's differences: folders as collapsible trees, files with time and size. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/DIRTREEXML">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Directory differences</xsl:with-param>
      <xsl:with-param name="body"><xsl:apply-templates select="DIRTREE"/></xsl:with-param>
    </xsl:call-template>
  </xsl:template>
  <xsl:template match="DIRTREE">
    <details open="open">
      <summary class="flag-{CHGFLAG/@flag}"><xsl:value-of select="NNAME"/></summary>
      <xsl:apply-templates select="DIRTREE"/>
      <xsl:for-each select="DIRVAL">
        <div class="entry flag-{CHGFLAG/@flag}">
          <xsl:value-of select="FNAME"/>  <xsl:value-of select="TIME"/>, <xsl:value-of select="SIZE"/> bytes
        </div>
      </xsl:for-each>
    </details>
  </xsl:template>
</xsl:stylesheet>
