<?xml version="1.0"?>
<!-- One registry key's differences: keys as collapsible trees, values with their type and data. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/REGKEYXML">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Registry differences</xsl:with-param>
      <xsl:with-param name="body"><xsl:apply-templates select="REGTREE"/></xsl:with-param>
    </xsl:call-template>
  </xsl:template>
  <xsl:template match="REGTREE">
    <details open="open">
      <summary class="flag-{CHGFLAG/@flag}">[<xsl:value-of select="NNAME"/>]</summary>
      <xsl:apply-templates select="REGTREE"/>
      <xsl:for-each select="REGVAL">
        <div class="entry flag-{CHGFLAG/@flag}">
          <xsl:choose>
            <xsl:when test="string(FNAME) = ''">&lt;DEFAULT&gt;</xsl:when>
            <xsl:otherwise><xsl:value-of select="FNAME"/></xsl:otherwise>
          </xsl:choose>
          <xsl:text> (</xsl:text><xsl:value-of select="DATATYPE/@type"/><xsl:text>) = </xsl:text>
          <xsl:value-of select="DATA"/>
        </div>
      </xsl:for-each>
    </details>
  </xsl:template>
</xsl:stylesheet>
